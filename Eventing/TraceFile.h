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

/// Writes every event that its provider handle gets to a file or to standard error, one line each, for as long as it lives.
/// A new file gets the access that the system gives to new files. Traces hold session tokens: a program that wants the file for its
/// user alone makes it beforehand.
class TraceFile
{
public:
    /// @param path  the file, replaced where it exists; "-" is standard error.
    /// @throws std::system_error where the file cannot be opened or no more sinks can.
    explicit TraceFile(const std::filesystem::path& path, std::uint8_t level = 4, std::uint64_t keywords = kAnyKeyword);
    ~TraceFile();

    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    /// What the library's `Init` takes.
    [[nodiscard]] ProviderHandle Handle() const noexcept { return m_handle; }

    /// Writes an event that came another way than by the handle: a host that listens itself hands its events on.
    void Take(const Event& event) noexcept;

    /// Whether every event so far has reached the file.
    [[nodiscard]] bool IsComplete() const;

private:
    void Write(const Event& event);
    unsigned DepthFor(const Event& event);

    std::ofstream m_file;
    std::ostream& m_stream;
    mutable std::mutex m_mutex;
    std::unordered_map<std::uint32_t, unsigned> m_depths; // of the threads that are inside a traced function
    bool m_isComplete = true;
    ProviderHandle m_handle = 0;
};

} // namespace Eventing
