#pragma once

/// @file
/// The versions that a client tells the server at its login: its own and its system's. What cannot be found out is absent, a
/// version without components. Everything here may be called from any thread and never throws but for want of memory. A program that
/// uses it links `QuendraHttp::Versions`.

#include "QuendraHttp/Types.h"

#include <string>
#include <string_view>

/// Versions, found out.
namespace VersionNumberUtil
{

/// Reads up to four decimal numbers joined by dots from a text's beginning: "6.1.0-13-amd64" gives 6.1.0.
/// @param text  any.
/// @return the version.
[[nodiscard]] VersionNumber FromText(std::string_view text);

/// The version of the program or library that holds this function: on Windows that of its version resource, elsewhere that of the
/// build.
/// @return the version.
[[nodiscard]] VersionNumber GetModuleVersion();

/// The operating system's version: on Windows what WMI reports, which no compatibility setting of the process bends; elsewhere the
/// kernel's release. Takes as long as WMI does: a moment, two minutes where it is broken.
///
/// WMI is reached through COM, with free threading where the thread does not run COM yet, else with the thread's own model.
/// @return the version.
[[nodiscard]] VersionNumber GetOsVersion();

#if defined(_WIN32)
/// The version resource of a program or library file.
/// @param path  the file.
/// @return the version.
[[nodiscard]] VersionNumber GetFileVersion(const std::wstring& path);
#endif

} // namespace VersionNumberUtil
