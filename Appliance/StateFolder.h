#pragma once

/// @file
/// The folder, inside the root and never shown as an item, for data that files cannot store.

#include "JsonText.h"

#include <boost/interprocess/sync/file_lock.hpp>

#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <random>
#include <stdexcept>
#include <system_error>

namespace ApplianceParts
{

/// @return that many hexadecimal digits from the system's random source.
[[nodiscard]] inline std::string RandomHex(std::size_t digits)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::random_device source;
    std::string text(digits, '0');
    for (char& character : text)
        character = kDigits[source() % kDigits.size()];
    return text;
}

class StateFolder
{
public:
    static constexpr std::string_view kName = ".quendra-appliance";

    /// Creates the root and the state folder if they do not exist.
    /// @throws std::runtime_error if another process uses them.
    explicit StateFolder(const std::filesystem::path& root) : m_folder(root / kName)
    {
        std::filesystem::create_directories(m_folder / "resume");
        std::ofstream(Path(kLock)).close();
        m_lock = boost::interprocess::file_lock(Path(kLock).c_str());
        if (!m_lock.try_lock())
            throw std::runtime_error("another process serves this root");
        std::filesystem::permissions(m_folder, std::filesystem::perms::owner_all);
        std::filesystem::create_directory(m_folder / kTemporary);
        // Temporary files of an earlier process. Those that cannot be removed, such as a write-protected folder with content, stay.
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder / kTemporary))
            std::filesystem::remove_all(entry.path(), ignored);
    }

    /// The path of a file or folder of the state. "resume" is a folder for uploads in chunks.
    [[nodiscard]] std::filesystem::path Path(std::string_view name) const { return m_folder / name; }

    /// An unused path, in a folder that the next process empties.
    [[nodiscard]] std::filesystem::path NewTemporary() const { return m_folder / kTemporary / RandomHex(32); }

    /// @return nothing if there is no such file.
    /// @throws std::runtime_error if it cannot be read.
    [[nodiscard]] std::optional<std::string> Read(std::string_view name) const
    {
        std::ifstream file(Path(name), std::ios::binary);
        if (!file && std::filesystem::exists(Path(name)))
            throw std::runtime_error("cannot read " + std::string(name) + " in the state folder");
        return file ? std::optional(std::string(std::istreambuf_iterator(file), {})) : std::nullopt;
    }

    /// Replaces a file's content atomically. Only the appliance's own user can read it.
    void Write(std::string_view name, std::string_view content) const;

    /// Adds a line of JSON to a file. Callable from any thread.
    /// @param change  made when the line is written. If it throws, the line is taken back.
    /// @throws std::system_error if the line cannot be written.
    void Append(std::string_view name, const Json::Value& line, const std::function<void()>& change = {}) const
    {
        const std::lock_guard guard(m_mutex);
        const auto path = Path(name);
        const auto size = std::filesystem::exists(path) ? std::filesystem::file_size(path) : 0;
        try
        {
            if (!(std::ofstream(path, std::ios::binary | std::ios::app) << JsonLine(line) << '\n' << std::flush))
                throw std::system_error(std::make_error_code(std::errc::no_space_on_device), "cannot write to " + std::string(name));
            if (change)
                change();
        }
        catch (...)
        {
            std::filesystem::resize_file(path, size);
            throw;
        }
    }

private:
    static constexpr const char* kTemporary = "temporary";
    static constexpr const char* kLock = "lock";

    const std::filesystem::path m_folder;
    boost::interprocess::file_lock m_lock; ///< free when the process has ended, however it did.
    mutable std::mutex m_mutex;            ///< one line at a time.
};

/// The path of a temporary file or folder. What is there is removed when it is no longer used.
class TemporaryFile
{
public:
    explicit TemporaryFile(const StateFolder& state) : m_path(state.NewTemporary()) {}
    ~TemporaryFile()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }

private:
    const std::filesystem::path m_path;
};

inline void StateFolder::Write(std::string_view name, std::string_view content) const
{
    const TemporaryFile temporary(*this);
    std::ofstream file(temporary.Path(), std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        throw std::system_error(std::make_error_code(std::errc::io_error), "cannot write " + std::string(name));
    std::filesystem::permissions(temporary.Path(), std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    std::filesystem::rename(temporary.Path(), Path(name));
}

} // namespace ApplianceParts
