#pragma once

/// @file
/// The folder, inside the root and never shown as an item, for data that files cannot store.

#include <filesystem>
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

    /// The path of a file or folder of the state.
    [[nodiscard]] std::filesystem::path Path(std::string_view name) const { return m_folder / name; }

    /// An unused path, in a folder that the next process empties.
    [[nodiscard]] std::filesystem::path NewTemporary() const;

    [[nodiscard]] std::optional<std::string> Read(std::string_view name) const;

    /// Replaces a file's content atomically. Only the appliance's own user can read it.
    void Write(std::string_view name, std::string_view content) const;

private:
    std::filesystem::path m_folder;
};

/// A file that is removed when it is no longer used.
class TemporaryFile
{
public:
    explicit TemporaryFile(std::filesystem::path path) : m_path(std::move(path)) {}
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
