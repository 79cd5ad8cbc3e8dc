#pragma once

/// @file
/// The folder, inside the root and never shown as an item, for data that files cannot store.

#include <json/value.h>

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace ApplianceParts
{

class StateFolder
{
public:
    static constexpr std::string_view kName = ".quendra-appliance";

    /// Creates the root and the state folder if they do not exist.
    explicit StateFolder(const std::filesystem::path& root);

    /// The path of a file or folder of the state. "resume" is a folder for uploads in chunks.
    [[nodiscard]] std::filesystem::path Path(std::string_view name) const { return m_folder / name; }

    /// An unused path, in a folder that the next process empties.
    [[nodiscard]] std::filesystem::path NewTemporary() const;

    [[nodiscard]] std::optional<std::string> Read(std::string_view name) const;

    /// Replaces a file's content atomically. Only the appliance's own user can read it.
    void Write(std::string_view name, std::string_view content) const;

    /// Adds a line of JSON to a file. Callable from any thread.
    /// @throws std::system_error if the line cannot be written.
    void Append(std::string_view name, const Json::Value& line) const;

private:
    std::filesystem::path m_folder;
    mutable std::mutex m_mutex; ///< one line at a time.
};

/// The path of a temporary file or folder. What is there is removed when it is no longer used.
class TemporaryFile
{
public:
    explicit TemporaryFile(const StateFolder& state) : m_path(state.NewTemporary()) {}
    ~TemporaryFile();

    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/// @return that many hexadecimal digits from the system's random source.
[[nodiscard]] std::string RandomHex(std::size_t digits);

} // namespace ApplianceParts
