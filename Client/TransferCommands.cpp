#include "Attributes.h"
#include "Client.h"
#include "Commands.h"
#include "Failures.h"
#include "Items.h"
#include "Progress.h"
#include "TerminalText.h"
#include "TextConversion.h"
#include "TimeText.h"
#include "Transfers.h"

#include "QuendraHttp/QuendraHttp.h"

#include <algorithm>
#include <filesystem>
#include <limits>

namespace
{

void UploadWhole(Client& client, const Command::Put& command)
{
    const LocalFile file = OpenLocalFile("UploadFile", command.local);
    const std::wstring target = TargetIn(client, command.path, file.name);
    auto attributes = file.Attributes(command.revision);
    const std::uint32_t deltaFlag = command.delta ? 1 : 0;
    const auto progress = std::make_shared<Progress>(client, file.name, static_cast<std::uint64_t>(file.facts.size));
    {
        const Cancellation cancellation(client, target, kTransferGrace);
        const ResultCode code = client.Api().UploadFile(file.path, target, attributes, &deltaFlag, cancellation.Event(), progress);
        progress->Finish();
        if (code != Result::Success && cancellation.IsRequested())
            client.Note(std::string("quendra: the upload starts afresh next time") +
                        (command.delta ? "" : "; with --chunk-size 8MB one that is interrupted can be resumed"));
        CheckTransfer("UploadFile", code, cancellation, attributes);
    }
    client.Print(ItemResult(attributes), UploadedText(file, target, attributes));
}

} // namespace

std::shared_ptr<IServerAttributes> LocalFile::Attributes(const std::string& revision) const
{
    auto attributes = std::make_shared<CServerAttributes>();
    attributes->SetName(name);
    attributes->SetSize(facts.size);
    attributes->SetCreationTime(CAttributeTime(facts.createdTicks));
    attributes->SetLastWriteTime(CAttributeTime(facts.modifiedTicks));
    attributes->SetAttributes(facts.attributes);
    attributes->SetRevision(revision);
    return attributes;
}

LocalFile OpenLocalFile(const char* operation, const std::wstring& argument)
{
    LocalFile file;
    file.path = System::LocalPath(argument);
    file.name = System::ToText(System::ToPath(argument).filename());
    Check(operation, System::ReadFileFacts(file.path, file.facts));
    if (!file.facts.isRegular)
        throw ProgramError(Printable(argument) + (file.facts.isFolder ? " is a folder" : " is a pipe or a device") +
                           ": put takes regular files only");
    return file;
}

void CheckTransfer(const char* operation, ResultCode code, const Cancellation& cancellation,
                   const std::shared_ptr<IServerAttributes>& attributes)
{
    if (code != Result::Success && cancellation.IsRequested())
        throw OperationFailed(operation, Result::Cancelled);
    if (code == Result::Conflict && attributes && !attributes->GetRevision().empty())
    {
        const std::string revision = attributes->GetRevision();
        throw OperationFailed(operation, code,
                              "the server has revision " + Printable(std::string_view(revision)) + " of " +
                                  TimeForPeople(attributes->GetLastWriteTime()) + ": --revision " + System::ShellWord(revision) +
                                  " replaces it");
    }
    Check(operation, code);
}

std::string LocalWord(const std::wstring& path)
{
    // A name that begins with a dash would be taken for an option.
    return System::ShellWord(ToNarrow(path.starts_with(L'-') ? L"./" + path : path));
}

std::string UploadedText(const LocalFile& file, const std::wstring& target, const std::shared_ptr<IServerAttributes>& item)
{
    return "Uploaded " + Printable(file.name) + " to " + Printable(target) + " (" +
           BinarySize(static_cast<std::uint64_t>(file.facts.size)) + ")" + RevisionNote(item) + ".\n";
}

namespace Command
{

void Execute(Client& client, const Put& command)
{
    if (command.chunkSize)
        UploadInChunks(client, command);
    else
        UploadWhole(client, command);
}

} // namespace Command
