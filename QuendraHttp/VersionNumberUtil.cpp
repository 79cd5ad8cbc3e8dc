#include "VersionNumberUtil.h"

#include <charconv>

VersionNumber VersionNumberUtil::FromText(std::string_view text)
{
    VersionNumber version;
    const char* const end = text.data() + text.size();
    for (const char* position = text.data(); version.count < VersionNumber::kMaximumComponents; ++position)
    {
        std::uint32_t component = 0;
        const auto [next, error] = std::from_chars(position, end, component);
        if (error != std::errc())
            break;
        version.components[version.count++] = component;
        position = next;
        if (position == end || *position != '.')
            break;
    }
    return version;
}
