#pragma once

/// @file
/// The versions that a client sends when it logs in: its own and its operating system's. An unknown version has no components. All
/// functions may be called from any thread and throw only std::bad_alloc. A program that uses it links `QuendraHttp::Versions`.

#include "QuendraHttp/Types.h"

#include <string>
#include <string_view>

/// Functions that determine versions.
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

/// The operating system's version: on Windows as WMI reports it, regardless of the process's compatibility settings; elsewhere the kernel's
/// release. WMI usually answers quickly, but takes up to two minutes if it is broken.
///
/// WMI is reached through COM, with the multithreaded apartment if the thread has not initialised COM, else with the thread's apartment.
/// @return the version.
[[nodiscard]] VersionNumber GetOsVersion();

#if defined(_WIN32)
/// The version resource of a program or library file.
/// @param path  the file.
/// @return the version.
[[nodiscard]] VersionNumber GetFileVersion(const std::wstring& path);
#endif

} // namespace VersionNumberUtil
