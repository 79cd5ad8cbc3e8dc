#include "VersionNumberUtil.h"

#include "Tracing.h"

#include <cerrno>
#include <sys/utsname.h>

VersionNumber VersionNumberUtil::GetModuleVersion()
{
    return FromText(QUENDRA_VERSION);
}

VersionNumber VersionNumberUtil::GetOsVersion()
{
    const FunctionTraceScope trace("VersionNumberUtil::GetOsVersion", Unit::VersionNumberUtil);
    utsname system{};
    if (uname(&system) != 0)
    {
        trace.Error("uname failed, error code: %d", errno);
        return {};
    }
    return FromText(static_cast<const char*>(system.release));
}
