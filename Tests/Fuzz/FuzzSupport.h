#pragma once

/// @file
/// What the fuzz targets share.

#include "Replies/JsonLibrary.h"
#include "Tracing.h"

#include "Eventing/EventSink.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

/// Listens to every event, so that the formatting of hostile text is part of what is tried.
inline void ListenToEverything()
{
    static const bool once = [] {
        constexpr std::uint8_t kInformational = 4;
        EventProviderHandle = OpenEventSink(
            kInformational, Eventing::kAnyKeyword, [](void*, const Eventing::Event*) {}, nullptr);
        return true;
    }();
    static_cast<void>(once);
}

/// Ends the run as a finding.
inline void Require(bool holds, int line = __builtin_LINE())
{
    if (holds)
        return;
    std::fprintf(stderr, "What line %d requires does not hold\n", line);
    std::abort();
}

inline std::string Bytes(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size}; // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast): bytes as characters
}
