#pragma once

/// @file
/// Event tracing for the library's functions: a `FunctionTraceScope` writes a function's entry, its messages and its exit:
///
///     FunctionTraceScope trace("WinHttpHandle::Attach", Unit::WinHttpImpl);
///     trace.Error("WinHttpOpen failed, error code: %d", error);
///
/// Tracing never changes behaviour: events are written only if their level is enabled, and the thread's last error is preserved.

#include "Eventing/EventFormat.h"
#include "Eventing/Eventing.h"
#include "Platform/Platform.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

/// The provider that the library writes to; 0 until the host sets it, read-only afterwards.
extern std::uint64_t EventProviderHandle;

inline constexpr Eventing::EventDescriptor EVT_INFO{101, 0, 16, 4, 0, 2, 0x8000000000000000};
inline constexpr Eventing::EventDescriptor EVT_WARNING{102, 0, 16, 3, 0, 2, 0x8000000000000000};
inline constexpr Eventing::EventDescriptor EVT_ERROR{103, 0, 16, 2, 0, 2, 0x8000000000000000};
inline constexpr Eventing::EventDescriptor EVT_CRITICAL{104, 0, 16, 1, 0, 2, 0x8000000000000000};
inline constexpr Eventing::EventDescriptor EVT_FUNCTION_ENTRY{Eventing::kFunctionEntryId, 0, 16, 4, 10, 1, 0x8000000000000001};
inline constexpr Eventing::EventDescriptor EVT_FUNCTION_EXIT{Eventing::kFunctionExitId, 0, 16, 4, 10, 1, 0x8000000000000001};

/// The source units that events name. People filter by these names, so they stay the same when files are renamed.
namespace Unit
{
inline constexpr const char* Interface = "Interface";
inline constexpr const char* NativeHttp = "NativeHttp";
inline constexpr const char* WinHttpImpl = "WinHttpImpl";
inline constexpr const char* AttributeTime = "AttributeTime";
inline constexpr const char* PathUtilities = "Libraries/Includes/PathUtilities";
inline constexpr const char* VersionNumberUtil = "VersionNumberUtil";
} // namespace Unit

namespace TraceDetail
{

using Eventing::ArgumentKind;

template <typename Argument> constexpr ArgumentKind KindOf()
{
    using Plain = std::decay_t<Argument>;
    if constexpr (std::same_as<Plain, std::wstring> || std::same_as<Plain, const wchar_t*> || std::same_as<Plain, wchar_t*>)
        return ArgumentKind::Wide;
    else if constexpr (std::same_as<Plain, std::string> || std::same_as<Plain, const char*> || std::same_as<Plain, char*>)
        return ArgumentKind::Narrow;
    else if constexpr (std::integral<Plain> && sizeof(Plain) <= 4)
        return ArgumentKind::Int32;
    else if constexpr (std::integral<Plain> && sizeof(Plain) == 8)
        return ArgumentKind::Int64;
    else
        return ArgumentKind::Unknown;
}

template <typename... Arguments> constexpr bool Matches(const char* format)
{
    constexpr std::size_t count = sizeof...(Arguments);
    constexpr ArgumentKind kinds[count + 1] = {KindOf<Arguments>()..., ArgumentKind::Unknown};
    std::size_t used = 0;
    while (*format != '\0')
    {
        if (*format++ != '%')
            continue;
        if (*format == '%')
        {
            ++format;
            continue;
        }
        const ArgumentKind wanted = Eventing::ReadConversion(format).kind;
        if (wanted == ArgumentKind::Unknown || used == count || kinds[used++] != wanted)
            return false;
    }
    return used == count;
}

// Called only in constant evaluation: because it is not constexpr, the call is a compile error. It has a body because Clang 14 also emits
// the constructor of a format that is a member's default, and the linker then needs this function.
inline void TheFormatDoesNotMatchItsArguments()
{
}

inline const char* Pass(const std::string& text)
{
    return text.c_str();
}
inline const wchar_t* Pass(const std::wstring& text)
{
    return text.c_str();
}
inline const char* Pass(const char* text)
{
    return text;
}
inline const wchar_t* Pass(const wchar_t* text)
{
    return text;
}
// The C type of 64-bit numbers differs by platform; convert them to the type in the formats.
template <std::integral Number> auto Pass(Number value)
{
    if constexpr (sizeof(Number) == sizeof(long long))
        return static_cast<long long>(value);
    else
        return value;
}

} // namespace TraceDetail

/// A message's format, checked against its arguments at compile time, and its source line.
template <typename... Arguments> struct TraceFormat
{
    /// No message, for an optional parameter.
    constexpr TraceFormat() = default;

    // NOLINTNEXTLINE(google-explicit-constructor): implicit, so that callers can pass a literal.
    consteval TraceFormat(const char* format, int sourceLine = __builtin_LINE()) : text(format), line(sourceLine)
    {
        if (!TraceDetail::Matches<Arguments...>(format))
            TraceDetail::TheFormatDoesNotMatchItsArguments();
    }

    [[nodiscard]] constexpr bool IsSet() const noexcept { return text != nullptr; }

    const char* text = nullptr;
    int line = 0;
};

/// Writes a message of a function that has no scope of its own.
/// @param descriptor            of the message's level.
/// @param function, sourceUnit  as of a `FunctionTraceScope`.
template <typename... Arguments>
void TraceMessage(const Eventing::EventDescriptor& descriptor, const char* function, const char* sourceUnit,
                  TraceFormat<std::type_identity_t<Arguments>...> format, const Arguments&... arguments)
{
    const LastErrorKeeper keeper;
    if (EventProviderHandle != 0 && IsEventEnabled(EventProviderHandle, &descriptor) != 0)
        WriteEventFormatted(EventProviderHandle, &descriptor, sourceUnit, format.line, function, format.text,
                            TraceDetail::Pass(arguments)...);
}

/// Traces a function: the constructor writes its entry, the destructor its exit.
///
/// The exit has the line number of the entry. An exit by an exception is written as a critical message, but only if the exit descriptor's
/// level is enabled. Filters rely on both.
class FunctionTraceScope
{
public:
    /// @param function    "Class::Operation"; must outlive the scope, like the unit.
    /// @param sourceUnit  one of `Unit`.
    /// @param line        the line that identifies the function's entry and exit.
    FunctionTraceScope(const char* function, const char* sourceUnit, int line = __builtin_LINE()) noexcept
        : m_function(function), m_sourceUnit(sourceUnit), m_line(line), m_provider(&EventProviderHandle)
    {
        if (HasProvider())
            WriteFunction(EVT_FUNCTION_ENTRY);
    }

    ~FunctionTraceScope()
    {
        if (HasProvider())
            WriteExit();
    }

    FunctionTraceScope(const FunctionTraceScope&) = delete;
    FunctionTraceScope& operator=(const FunctionTraceScope&) = delete;

    template <typename... Arguments> void Info(TraceFormat<std::type_identity_t<Arguments>...> format, const Arguments&... arguments) const
    {
        Write(EVT_INFO, format, arguments...);
    }

    template <typename... Arguments>
    void Warning(TraceFormat<std::type_identity_t<Arguments>...> format, const Arguments&... arguments) const
    {
        Write(EVT_WARNING, format, arguments...);
    }

    template <typename... Arguments> void Error(TraceFormat<std::type_identity_t<Arguments>...> format, const Arguments&... arguments) const
    {
        Write(EVT_ERROR, format, arguments...);
    }

    /// Whether a descriptor is enabled: test it before preparing an expensive message.
    [[nodiscard]] bool IsEnabled(const Eventing::EventDescriptor& descriptor) const noexcept
    {
        return HasProvider() && IsListenedTo(descriptor);
    }

private:
    template <typename... Arguments>
    void Write(const Eventing::EventDescriptor& descriptor, TraceFormat<std::type_identity_t<Arguments>...> format,
               const Arguments&... arguments) const
    {
        if (!IsEnabled(descriptor))
            return;
        const LastErrorKeeper keeper;
        WriteEventFormatted(*m_provider, &descriptor, m_sourceUnit, format.line, m_function, format.text, TraceDetail::Pass(arguments)...);
    }

    // Handle 0 is never enabled. Testing it inline saves the call in a process without a provider; listings open five scopes for each item.
    [[nodiscard]] bool HasProvider() const noexcept { return *m_provider != 0; }

    [[nodiscard]] bool IsListenedTo(const Eventing::EventDescriptor& descriptor) const noexcept;
    void WriteFunction(const Eventing::EventDescriptor& descriptor) const noexcept;
    void WriteExit() const noexcept;

    const char* m_function;
    const char* m_sourceUnit;
    std::int32_t m_line;
    const std::uint64_t* m_provider;
};
