#pragma once

/// @file
/// Lines of text from several threads.

#include <filesystem>
#include <fstream>
#include <mutex>
#include <ostream>
#include <string_view>
#include <system_error>

namespace ApplianceParts
{

class LineWriter
{
public:
    explicit LineWriter(std::ostream& output) : m_output(output) {}
    /// Appends to a file.
    explicit LineWriter(const std::filesystem::path& file) : m_file(file, std::ios::binary | std::ios::app), m_output(m_file) {}

    /// @throws std::system_error if the line cannot be written.
    void Write(std::string_view line)
    {
        const std::lock_guard guard(m_mutex);
        if (m_output << line << '\n' << std::flush)
            return;
        // A later line may find free space again, and must not continue this one.
        m_output.clear();
        m_output << '\n';
        throw std::system_error(std::make_error_code(std::errc::no_space_on_device), "cannot write a line");
    }

private:
    std::ofstream m_file;
    std::ostream& m_output;
    std::mutex m_mutex;
};

} // namespace ApplianceParts
