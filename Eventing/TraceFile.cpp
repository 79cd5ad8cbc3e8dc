#include "TraceFile.h"

#include "EventLine.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iostream>
#include <string_view>
#include <system_error>

namespace Eventing
{
namespace
{

constexpr std::string_view kExceptionExit = "[EXCEPTION EXIT]";

std::ofstream OpenFile(const std::filesystem::path& path)
{
    errno = 0;
    std::ofstream file(path);
    if (!file)
        throw std::system_error(errno != 0 ? errno : EIO, std::generic_category(), "The trace file cannot be opened");
    return file;
}

bool LeavesFunction(const Event& event)
{
    return event.descriptor->id == kFunctionExitId || (event.message != nullptr && event.message == kExceptionExit);
}

} // namespace

TraceFile::TraceFile(const std::filesystem::path& path, std::uint8_t level, std::uint64_t keywords)
    : m_file(path == "-" ? std::ofstream() : OpenFile(path)), m_stream(path == "-" ? std::cerr : m_file)
{
    const auto take = [](void* self, const Event* event) { static_cast<TraceFile*>(self)->Take(*event); };
    m_handle = OpenEventSink(level, keywords, take, this);
    if (m_handle == 0)
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "Too many traces are open");
}

TraceFile::~TraceFile()
{
    CloseEventSink(m_handle);
}

bool TraceFile::IsComplete() const
{
    const std::lock_guard lock(m_mutex);
    return m_isComplete;
}

void TraceFile::Take(const Event& event) noexcept
{
    const std::lock_guard lock(m_mutex);
    try
    {
        Write(event);
    }
    catch (const std::exception&)
    {
        m_isComplete = false;
    }
}

void TraceFile::Write(const Event& event)
{
    m_stream << FormatEventLine(event, DepthFor(event)) << '\n' << std::flush;
    if (!m_stream)
        m_isComplete = false;
}

// The depth at which to show an event; the same for a function's entry and exit.
unsigned TraceFile::DepthFor(const Event& event)
{
    if (event.descriptor->id == kFunctionEntryId)
        return m_depths[event.threadId]++;
    const auto found = m_depths.find(event.threadId);
    if (found == m_depths.end())
        return 0;
    if (!LeavesFunction(event))
        return found->second;
    const unsigned depth = --found->second;
    if (depth == 0)
        m_depths.erase(found);
    return depth;
}

} // namespace Eventing
