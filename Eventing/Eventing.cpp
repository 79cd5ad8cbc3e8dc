#include "Eventing.h"

#include "EventFormat.h"
#include "SinkTable.h"
#include "SystemTracing.h"

#include <chrono>
#include <cstdarg>
#include <exception>
#include <string>

namespace
{

using namespace Eventing;

std::int64_t UnixMillisecondsNow() noexcept
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

const char* NeverNull(const char* text) noexcept
{
    return text != nullptr ? text : "";
}

void Write(ProviderHandle provider, const EventDescriptor& descriptor, const char* sourceUnit, std::int32_t line, const char* function,
           const char* message) noexcept
{
    const Event event{&descriptor, NeverNull(sourceUnit), line, NeverNull(function), message, CurrentThreadId(), UnixMillisecondsNow()};
    if (IsSinkHandle(provider))
        WriteToSink(provider, event);
    else
        WriteSystemEvent(provider, event);
}

} // namespace

std::int32_t IsEventEnabled(ProviderHandle provider, const EventDescriptor* descriptor) noexcept
{
    if (provider == 0 || descriptor == nullptr)
        return 0;
    const bool enabled = IsSinkHandle(provider) ? IsSinkEnabled(provider, *descriptor) : IsSystemEventEnabled(provider, *descriptor);
    return enabled ? 1 : 0;
}

void WriteEventFormatted(ProviderHandle provider, const EventDescriptor* descriptor, const char* sourceUnit, std::int32_t line,
                         const char* function, const char* format, ...) noexcept
{
    if (IsEventEnabled(provider, descriptor) == 0)
        return;
    std::va_list arguments;
    va_start(arguments, format);
    std::string message;
    const char* text = NeverNull(format);
    try
    {
        message = FormatMessageText(text, arguments);
        text = message.c_str();
    }
    catch (const std::exception&)
    {
        // No memory to format the message: write the format itself.
    }
    va_end(arguments);
    Write(provider, *descriptor, sourceUnit, line, function, text);
}

void WriteEventFunction(ProviderHandle provider, const EventDescriptor* descriptor, const char* sourceUnit, std::int32_t line,
                        const char* function) noexcept
{
    if (IsEventEnabled(provider, descriptor) != 0)
        Write(provider, *descriptor, sourceUnit, line, function, nullptr);
}
