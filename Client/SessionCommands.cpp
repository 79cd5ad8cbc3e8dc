#include "Client.h"
#include "Commands.h"
#include "Failures.h"
#include "JsonText.h"
#include "SessionFile.h"
#include "System.h"
#include "TerminalText.h"
#include "TextConversion.h"
#include "VersionNumberUtil.h"

#include "QuendraHttp/QuendraHttp.h"

#include <cstdint>
#include <iostream>
#include <memory>

namespace
{

std::wstring AskForPassword(const std::wstring& user)
{
    if (const auto password = System::Environment("QUENDRA_PASSWORD"))
        return ToWide(*password);
    if (System::InputIsTerminal())
    {
        if (const auto password = System::AskSecretly("Password for " + Printable(user) + ": "))
            return ToWide(*password);
        throw UsageError("no password was given");
    }
    std::string line;
    if (!std::getline(std::cin, line))
        throw UsageError("no password: set QUENDRA_PASSWORD or write it to standard input");
    if (line.ends_with('\r'))
        line.pop_back();
    return ToWide(line);
}

// The reply with the policy also contains the session token, which is left out. Empty where the reply cannot be read: the library takes
// more for JSON than this parser.
std::string PolicyText(const std::wstring& reply)
{
    auto root = ParseJsonObject(ToNarrow(reply));
    if (!root)
        return {};
    root->removeMember("session_token");
    return JsonLine(*root);
}

} // namespace

std::string ModeText(std::uint32_t serverMode)
{
    switch (serverMode)
    {
    case 1:
        return "legacy";
    case 2:
        return "device-token authentication";
    default:
        return std::to_string(serverMode);
    }
}

namespace Command
{

void Execute(Client& client, const Handshake& /*command*/)
{
    std::uint32_t serverMode = 0;
    std::uint32_t handshakeValue = 0;
    Check("Init", client.Api().Init(serverMode, handshakeValue));
    const bool apiAtLeast13 = client.Api().IsApiVersionAtLeast13();

    Json::Value document;
    document["serverMode"] = serverMode;
    document["handshakeValue"] = handshakeValue;
    document["apiAtLeast13"] = apiAtLeast13;
    client.Print(document, "Server:          " + client.Server().Text() + "\nServer mode:     " + ModeText(serverMode) +
                               "\nHandshake value: " + std::to_string(handshakeValue) +
                               "\nAPI version:     " + (apiAtLeast13 ? "1.3 or later" : "before 1.3") + "\n");
}

void Execute(Client& client, const Version& /*command*/)
{
    std::wstring buildNumber;
    Check("Version", client.Api().Version(buildNumber));
    Json::Value document;
    document["buildNumber"] = ToNarrow(buildNumber);
    client.Print(document, Printable(buildNumber) + "\n");
}

void Execute(Client& client, const Register& command)
{
    Check("Register", client.Api().Register(command.user, System::MachineName()));
    client.Print(OkDocument(), "Registered. The server sends " + Printable(command.user) + " an e-mail.\n");
}

void Execute(Client& client, const Login& command)
{
    const auto file = SessionFilePath();
    if (file.empty())
        throw ProgramError("There is no folder for the session: name a file in QUENDRA_SESSION");
    std::wstring policy;
    std::uint32_t handshakeValue = 0;
    const std::wstring password = AskForPassword(command.user);
    Check("Login", client.Api().Login(command.user, password, command.deviceToken, System::MachineName(), policy, handshakeValue,
                                      VersionNumberUtil::GetModuleVersion(), VersionNumberUtil::GetOsVersion()));
    std::wstring token;
    Check("GetSessionToken", client.Api().GetSessionToken(token));
    SaveSession(file, {client.Server(), ToNarrow(token)});

    Json::Value document = OkDocument();
    document["handshakeValue"] = handshakeValue;
    std::string text = "Logged in to " + client.Server().Text() + " as " + Printable(command.user) + ".\n";
    if (!policy.empty())
    {
        const std::string shown = PolicyText(policy);
        document["policy"] = shown;
        text += shown.empty() ? "The server sent a policy that cannot be read.\n" : "The server sent a policy; --json shows it.\n";
    }
    client.Print(document, text);
}

void Execute(Client& client, const Logout& /*command*/)
{
    const bool wasLoggedIn = ForgetSession(SessionFilePath());
    client.Print(OkDocument(), wasLoggedIn ? "Logged out: the saved session is forgotten.\n" : "There is no saved session.\n");
}

} // namespace Command
