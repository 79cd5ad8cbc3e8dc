#include "SessionFile.h"

#include "Failures.h"
#include "JsonText.h"
#include "System.h"
#include "TextConversion.h"

#include <fstream>

namespace
{

std::string Named(const std::filesystem::path& file)
{
    return ToNarrow(System::ToText(file));
}

[[noreturn]] void NotASession(const std::filesystem::path& file)
{
    throw ProgramError(Named(file) + " does not hold a session: 'quendra logout' removes it, 'quendra login' makes a new one");
}

} // namespace

std::filesystem::path SessionFilePath()
{
    if (const auto named = System::Environment("QUENDRA_SESSION"); named && !named->empty())
        return System::ToPath(System::LocalPath(ToWide(*named)));
    const auto folder = System::ConfigurationFolder();
    return folder.empty() ? folder : folder / "quendra" / "session.json";
}

std::optional<SavedSession> LoadSession(const std::filesystem::path& file)
{
    std::error_code ignored;
    if (file.empty() || !std::filesystem::exists(file, ignored))
        return std::nullopt;
    std::ifstream stream(file, std::ios::binary);
    const std::string text = ReadAll(stream, "The saved session in " + Named(file));

    try
    {
        const auto root = ParseJsonObject(text);
        if (!root || !IsValidUtf8(text) || !(*root)["server"].isString() || !(*root)["port"].isInt() || !(*root)["token"].isString())
            NotASession(file);
        return SavedSession{MakeAddress(ParseServer((*root)["server"].asString()), ParsePort((*root)["port"].asString())),
                            (*root)["token"].asString()};
    }
    catch (const Json::Exception&)
    {
        NotASession(file);
    }
    catch (const UsageError&)
    {
        NotASession(file);
    }
}

void SaveSession(const std::filesystem::path& file, const SavedSession& session)
{
    Json::Value root;
    root["server"] = session.server.Url();
    root["port"] = session.server.port;
    root["token"] = session.token;
    std::error_code error;
    if (file.has_parent_path())
        std::filesystem::create_directories(file.parent_path(), error);
    if (!error)
        error = System::WritePrivateFile(file, Json::writeString(Json::StreamWriterBuilder(), root) + "\n");
    if (error)
        throw ProgramError("The session cannot be saved in " + Named(file) + ": " + error.message());
}

bool ForgetSession(const std::filesystem::path& file)
{
    std::error_code error;
    const bool existed = !file.empty() && std::filesystem::remove(file, error);
    if (error)
        throw ProgramError("The session in " + Named(file) + " cannot be removed: " + error.message());
    return existed;
}
