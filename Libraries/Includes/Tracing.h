#pragma once

/// @file
/// Event tracing as every function of the library uses it: a `FunctionTraceScope` opens the function, writes its entry and
/// exit, and carries its messages:
///
///     FunctionTraceScope trace("WinHttpHandle::Attach", Unit::WinHttpImpl);
///     trace.Error("WinHttpOpen failed, error code: %d", error);
///
/// Tracing never changes behaviour: each write is preceded by the test whether somebody listens, and the thread's last error
/// is the same after it.

#include "Eventing/EventFormat.h"
#include "Eventing/Eventing.h"
#include "Platform/Platform.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

/// The provider that the library writes to; 0 until the host hands one over, then only read.
extern std::uint64_t EventProviderHandle;

inline constexpr Eventing::EventDescriptor EVT_INFO{101, 0, 16, 4, 0, 2, 0x8000000000000000};
inline constexpr Eventing::EventDescriptor EVT_WARNING{102, 0, 16, 3, 0, 2, 0x8000000000000000};
inline constexpr Eventing::EventDescriptor EVT_ERROR{103, 0, 16, 2, 0, 2, 0x8000000000000000};
inline constexpr Eventing::EventDescriptor EVT_CRITICAL{104, 0, 16, 1, 0, 2, 0x8000000000000000};
inline constexpr Eventing::EventDescriptor EVT_FUNCTION_ENTRY{Eventing::kFunctionEntryId, 0, 16, 4, 10, 1, 0x8000000000000001};
inline constexpr Eventing::EventDescriptor EVT_FUNCTION_EXIT{Eventing::kFunctionExitId, 0, 16, 4, 10, 1, 0x8000000000000001};

/// The source units that events name. They are stable names for people who filter on them, whatever the files are called.
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

// Called only while a format is compiled: naming a function that is not constexpr makes the compiler stop there. It has a body because
// Clang 14 also emits the constructor of a format that is a member's default, and the linker then looks for this function.
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
// 64-bit numbers have one C type or another by platform; the formats name this one.
template <std::integral Number> auto Pass(Number value)
{
    if constexpr (sizeof(Number) == sizeof(long long))
        return static_cast<long long>(value);
    else
        return value;
}

} // namespace TraceDetail

/// A message's format, checked against its arguments when it is compiled, and the line that it stands on.
template <typename... Arguments> struct TraceFormat
{
    /// No message: where a message may be left out.
    constexpr TraceFormat() = default;

    // NOLINTNEXTLINE(google-explicit-constructor): a literal is meant to become a format by itself.
    consteval TraceFormat(const char* format, int sourceLine = __builtin_LINE()) : text(format), line(sourceLine)
    {
        if (!TraceDetail::Matches<Arguments...>(format))
            TraceDetail::TheFormatDoesNotMatchItsArguments();
    }

    [[nodiscard]] constexpr bool IsSet() const noexcept { return text != nullptr; }

    const char* text = nullptr;
    int line = 0;
};

/// Writes an informational message of a function that has no scope of its own.
/// @param function, sourceUnit  as of a `FunctionTraceScope`.
template <typename... Arguments>
void TraceInfo(const char* function, const char* sourceUnit, TraceFormat<std::type_identity_t<Arguments>...> format,
               const Arguments&... arguments)
{
    const LastErrorKeeper keeper;
    if (EventProviderHandle != 0 && IsEventEnabled(EventProviderHandle, &EVT_INFO) != 0)
        WriteEventFormatted(EventProviderHandle, &EVT_INFO, sourceUnit, format.line, function, format.text,
                            TraceDetail::Pass(arguments)...);
}

/// Opens a function's trace: writes its entry when it is made, its exit when it ends, and its messages in between.
///
/// The exit carries the line of the entry, and an exit by an exception is asked for at the exit descriptor's level but written
/// as a critical message; both are what people filter on.
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

    /// Whether somebody listens at a descriptor: for messages that cost something to prepare.
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

    // Nothing listens to the handle zero. Seen here, a scope in a process without a provider costs no call; listings open five of
    // them for each of their items.
    [[nodiscard]] bool HasProvider() const noexcept { return *m_provider != 0; }

    [[nodiscard]] bool IsListenedTo(const Eventing::EventDescriptor& descriptor) const noexcept;
    void WriteFunction(const Eventing::EventDescriptor& descriptor) const noexcept;
    void WriteExit() const noexcept;

    const char* m_function;
    const char* m_sourceUnit;
    std::int32_t m_line;
    const std::uint64_t* m_provider;
};
