// Texts that users, servers and files give to the library and its programs beside replies: the first byte chooses the reader.

#include "CommandLine.h"
#include "Failures.h"
#include "Faults.h"
#include "FuzzSupport.h"
#include "Http.h"
#include "Identifier.h"
#include "Item.h"
#include "PathUtilities.h"
#include "ServerAddress.h"
#include "ServerAnswer.h"
#include "SessionFile.h"
#include "TerminalText.h"
#include "TextConversion.h"
#include "TimeText.h"
#include "UrlEncoding.h"

#include "Eventing/EventLine.h"
#include "Platform/Platform.h"

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace
{

void ReadServer(const std::string& text)
{
    try
    {
        const ServerAddress address = MakeAddress(ParseServer(text), {});
        Require(!address.host.empty() && address.port > 0 && address.port < 65536);
        // What is shown is read as the same address.
        Require(MakeAddress(ParseServer(address.Text()), {}) == address);
    }
    catch (const UsageError&)
    {
    }
}

void ReadTime(const std::string& text)
{
    if (const auto time = ParseTime(text))
        Require(time->GetTicks() != CAttributeTime::kUnset && !TimeForPeople(*time).empty());
}

void ReadArguments(const std::string& text)
{
    std::vector<std::string> arguments;
    for (std::size_t at = 0; at <= text.size();)
    {
        const std::size_t end = std::min(text.size(), text.find('\n', at));
        arguments.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    try
    {
        static_cast<void>(ParseCommandLine(arguments, [](const std::string&) { return std::nullopt; }));
    }
    catch (const UsageError&)
    {
    }
    catch (const HelpRequest&)
    {
    }
}

std::filesystem::path WriteFile(const std::string& text)
{
    static const auto file = std::filesystem::temp_directory_path() / ("quendra-fuzz-" + std::to_string(getpid()));
    std::ofstream(file, std::ios::binary) << text;
    return file;
}

void ReadSession(const std::string& text)
{
    const auto file = WriteFile(text);
    try
    {
        if (const auto session = LoadSession(file))
        {
            SaveSession(file, *session);
            const auto again = LoadSession(file);
            Require(again && again->server == session->server && again->token == session->token);
        }
    }
    catch (const ProgramError&)
    {
    }
    std::filesystem::remove(file);
}

void ReadRegistry(const std::string& text)
{
    const auto file = WriteFile(text);
    setenv("QUENDRA_REGISTRY", file.c_str(), 1); // NOLINT(concurrency-mt-unsafe): nothing else runs
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Key", 0, KEY_QUERY_VALUE, &key) == ERROR_SUCCESS)
    {
        for (const wchar_t* name : {L"Value", L""})
        {
            DWORD type = 0;
            DWORD size = 0;
            if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
                continue;
            std::vector<BYTE> data(size);
            Require(RegQueryValueExW(key, name, nullptr, &type, data.data(), &size) == ERROR_SUCCESS && size == data.size());
        }
        RegCloseKey(key);
    }
    std::filesystem::remove(file);
}

void ReadPath(const std::string& text)
{
    const std::wstring wide = ToWide(text);
    const std::string narrow = ToNarrow(wide);
    Require(ToNarrow(ToWide(narrow)) == narrow);
    static_cast<void>(PathUtilities::NormalizePath(wide));
    for (const auto mode : {UrlEncodingMode::Path, UrlEncodingMode::Form})
        for (const char unit : EncodeUrl(wide, mode))
            Require(unit > ' ' && unit < 0x7F);
}

void ReadOnTheServer(const std::string& text)
{
    try
    {
        const auto path = ApplianceParts::ItemPath::FromUrl(text);
        Require(path.IsRoot() || path.Text().starts_with('/'));
        for (const auto& part : std::filesystem::path(path.Text()))
            Require(part != ".." && part != ".");
        Require(ApplianceParts::ItemPath::FromText(path.Text()) == path);
    }
    catch (const ApplianceParts::ApiError&)
    {
    }
    static_cast<void>(ApplianceParts::ParseTime(text));
    static_cast<void>(ApplianceParts::Parameter(text, "name"));
    try
    {
        static_cast<void>(ApplianceParts::ReadFaultPlan(text));
    }
    catch (const std::runtime_error&)
    {
    }
}

void ReadForPeople(const std::string& text)
{
    for (const std::string& shown : {Printable(std::string_view(text)), Eventing::EscapeLine(text)})
        for (const char unit : shown)
            Require(static_cast<unsigned char>(unit) >= ' ' && unit != 0x7F);
    Require(DisplayWidth(FitTo(Printable(std::string_view(text)), 10)) <= 10);
    if (const auto id = ParseIdentifier(text))
        Require(ParseIdentifier(ToNarrow(IdentifierText(*id))).has_value());
    AnswerReader reader;
    constexpr Eventing::EventDescriptor kMessage{101, 0, 16, 4, 0, 2, 0x8000000000000000};
    for (const char* function : {"CNativeHttp::LogResponse", "WinHttpRequest::ReceiveResponse"})
        reader.Take({&kMessage, "", 0, function, text.c_str(), 1, 0});
    static_cast<void>(reader.Answer());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr void (*kReaders[])(const std::string&) = {ReadServer,   ReadTime, ReadArguments,   ReadSession,
                                                        ReadRegistry, ReadPath, ReadOnTheServer, ReadForPeople};
    ListenToEverything();
    if (size > 0)
        kReaders[data[0] % std::size(kReaders)](Bytes(data + 1, size - 1));
    return 0;
}
