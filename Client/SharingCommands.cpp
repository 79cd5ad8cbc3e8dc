#include "Client.h"
#include "Commands.h"
#include "Failures.h"
#include "Mapping.h"
#include "System.h"
#include "TerminalText.h"
#include "TextConversion.h"

#include "QuendraHttp/QuendraHttp.h"

#include <fstream>
#include <iostream>
#include <memory>
#include <vector>

namespace
{

std::string ModeText(MappingMode mode)
{
    switch (mode)
    {
    case MappingMode::Automatic:
        return "automatic";
    case MappingMode::Offline:
        return "offline";
    case MappingMode::Other:
        break;
    }
    return "other";
}

std::string TypeText(MappingType type)
{
    switch (type)
    {
    case MappingType::Smb:
        return "smb";
    case MappingType::WebDav:
        return "webdav";
    case MappingType::Other:
        break;
    }
    return "other";
}

Json::Value MappingDocument(const CMapping& mapping)
{
    Json::Value document;
    document["serverPath"] = ToNarrow(mapping.ServerPath);
    document["localPath"] = ToNarrow(mapping.LocalPath);
    document["description"] = ToNarrow(mapping.Description);
    document["permissions"] = ToNarrow(mapping.Permissions);
    document["mode"] = static_cast<Json::UInt>(mapping.Mode);
    document["status"] = static_cast<Json::UInt>(mapping.Status);
    document["allowSharing"] = mapping.AllowSharing != 0;
    document["type"] = static_cast<Json::UInt>(mapping.Type);
    return document;
}

std::string ReadAuditData(const std::string& name)
{
    if (name == "-")
        return ReadAll(std::cin, "Standard input");
    std::ifstream file(System::ToPath(System::LocalPath(ToWide(name))), std::ios::binary);
    if (!file)
        throw ProgramError(name + " cannot be opened");
    return ReadAll(file, name);
}

} // namespace

namespace Command
{

void Execute(Client& client, const Mappings& /*command*/)
{
    std::vector<CMapping*> received;
    const ResultCode code = client.Api().GetRemoteFolderMap(received);
    // Mappings that were received before a failure must be deleted, too.
    const std::vector<std::unique_ptr<CMapping>> mappings(received.begin(), received.end());
    Check("GetRemoteFolderMap", code);

    Json::Value document;
    document["mappings"] = Json::Value(Json::arrayValue);
    Table table({{"Path"}, {"Type"}, {"Mode"}, {"Reachable"}, {"Permissions"}, {"Sharing"}, {"Description"}});
    for (const auto& mapping : mappings)
    {
        document["mappings"].append(MappingDocument(*mapping));
        table.Add({Printable(mapping->ServerPath), TypeText(mapping->Type), ModeText(mapping->Mode),
                   mapping->Status == MappingStatus::Reachable ? "yes" : "no", Printable(mapping->Permissions),
                   mapping->AllowSharing != 0 ? "yes" : "no", Printable(mapping->Description)});
    }
    client.Print(document, table.Render());
}

void Execute(Client& client, const Share& command)
{
    auto request = std::make_shared<ShareRequest>();
    request->name = command.name;
    request->message = command.message;
    request->paths.assign(command.paths.begin(), command.paths.end());
    request->targets.assign(command.recipients.begin(), command.recipients.end());
    Check("GenerateLink", client.Api().GenerateLink(std::move(request)));

    std::string recipients;
    for (const auto& recipient : command.recipients)
        recipients += (recipients.empty() ? "" : ", ") + Printable(recipient);
    client.Print(OkDocument(), "Shared " + std::to_string(command.paths.size()) + (command.paths.size() == 1 ? " item" : " items") +
                                   " with " + recipients + ".\n");
}

void Execute(Client& client, const Audit& command)
{
    Check("PublishSyncStats", client.Api().PublishSyncStats(ReadAuditData(command.file)));
    client.Print(OkDocument(), "Published.\n");
}

void Execute(Client& client, const WipeAcknowledgement& command)
{
    Check("AcknowledgeRemoteWipe", client.Api().AcknowledgeRemoteWipe(command.user, command.deviceId));
    client.Print(OkDocument(), "Acknowledged the remote wipe of " + Printable(command.deviceId) + ".\n");
}

} // namespace Command
