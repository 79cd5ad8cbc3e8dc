#pragma once

/// @file
/// A trace as a text file.

#include "EventSink.h"

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iosfwd>
#include <mutex>
#include <unordered_map>

namespace Eventing
{

/// Writes every event of its provider handle to a file or to standard error, one line each. A new file gets default permissions. Traces
/// hold session tokens: a program that wants to restrict access creates the file beforehand.
class TraceFile
{
public:
    /// @param path  the file, replaced where it exists; "-" is standard error.
    /// @throws std::system_error where the file cannot be opened or no more sinks can.
    explicit TraceFile(const std::filesystem::path& path, std::uint8_t level = 4, std::uint64_t keywords = kAnyKeyword);
    ~TraceFile();

    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    /// The handle to pass to the library's `Init`.
    [[nodiscard]] ProviderHandle Handle() const noexcept { return m_handle; }

    /// Writes an event that was not received through the handle, for hosts with their own sink.
    void Take(const Event& event) noexcept;

    /// Whether every event so far has reached the file.
    [[nodiscard]] bool IsComplete() const;

private:
    void Write(const Event& event);
    unsigned DepthFor(const Event& event);

    std::ofstream m_file;
    std::ostream& m_stream;
    mutable std::mutex m_mutex;
    std::unordered_map<std::uint32_t, unsigned> m_depths; // by id of each thread that is inside a traced function
    bool m_isComplete = true;
    ProviderHandle m_handle = 0;
};

} // namespace Eventing
