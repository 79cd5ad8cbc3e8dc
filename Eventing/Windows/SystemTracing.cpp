#include "Eventing/SystemTracing.h"

#include "Platform/Platform.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <evntprov.h>

namespace Eventing
{
namespace
{

// An event takes 64 KiB at most, its header and other fields included; a longer one would be dropped as a whole.
constexpr std::size_t kLongestMessage = 60'000;

EVENT_DESCRIPTOR ToSystem(const EventDescriptor& descriptor) noexcept
{
    static_assert(sizeof(EVENT_DESCRIPTOR) == sizeof(EventDescriptor));
    EVENT_DESCRIPTOR result;
    std::memcpy(&result, &descriptor, sizeof result);
    return result;
}

EVENT_DATA_DESCRIPTOR Field(const void* data, std::size_t size) noexcept
{
    EVENT_DATA_DESCRIPTOR result;
    EventDataDescCreate(&result, data, static_cast<ULONG>(size));
    return result;
}

std::size_t CutLength(const char* message) noexcept
{
    std::size_t length = std::strlen(message);
    if (length <= kLongestMessage)
        return length;
    length = kLongestMessage;
    while (length > 0 && (static_cast<unsigned char>(message[length]) & 0xC0U) == 0x80U)
        --length;
    return length;
}

} // namespace

bool IsSystemEventEnabled(ProviderHandle provider, const EventDescriptor& descriptor) noexcept
{
    const EVENT_DESCRIPTOR system = ToSystem(descriptor);
    return EventEnabled(provider, &system) != FALSE;
}

void WriteSystemEvent(ProviderHandle provider, const Event& event) noexcept
{
    const EVENT_DESCRIPTOR system = ToSystem(*event.descriptor);
    std::array<EVENT_DATA_DESCRIPTOR, 5> fields{
        Field(event.sourceUnit, std::strlen(event.sourceUnit) + 1),
        Field(&event.line, sizeof event.line),
        Field(event.function, std::strlen(event.function) + 1),
    };
    ULONG count = 3;
    if (event.message != nullptr)
    {
        fields[count++] = Field(event.message, CutLength(event.message));
        fields[count++] = Field("", 1);
    }
    EventWrite(provider, &system, count, fields.data());
}

std::uint32_t CurrentThreadId() noexcept
{
    return GetCurrentThreadId();
}

std::uint32_t CurrentProcessId() noexcept
{
    return GetCurrentProcessId();
}

} // namespace Eventing
