#pragma once

/// @file
/// The Win32 calls that the library makes outside WinHTTP, over POSIX: last error, handles, files, events, registry values, text, time and
/// identifiers. Names, arguments, results and error values are those of the Windows documentation; comments state only the differences on
/// Linux. Only calls that the library uses are provided.

#include "QuendraHttp/Platform.h"

#include <cstddef>
#include <cstdint>

namespace Quendra::Platform
{

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using LONG = std::int32_t;
using UINT = std::uint32_t;
using LSTATUS = std::int32_t;
using ULONGLONG = std::uint64_t;
using LONGLONG = std::int64_t;
using DWORD_PTR = std::uintptr_t;
using LPWSTR = wchar_t*;
using LPCSTR = const char*;
using LPSTR = char*;
using LPVOID = void*;
using LPCVOID = const void*;

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

// Last error, one value a thread (<errhandlingapi.h>, <winerror.h>).

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD NO_ERROR = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_WRITE_FAULT = 29;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_HANDLE_EOF = 38;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
inline constexpr DWORD ERROR_DIRECTORY = 267;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
inline constexpr DWORD ERROR_CANCELLED = 1223;
inline constexpr DWORD ERROR_RETRY = 1237;
inline constexpr DWORD ERROR_SERVER_DISABLED = 1341;
inline constexpr DWORD ERROR_NO_SYSTEM_RESOURCES = 1450;

inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005U);

// Files (<fileapi.h>). Paths are UTF-8 on disk; "\\?\" prefixes and backslashes have no meaning here.

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD FILE_SHARE_DELETE = 4;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_TYPE_UNKNOWN = 0;
inline constexpr DWORD FILE_TYPE_DISK = 1;
inline constexpr DWORD FILE_TYPE_CHAR = 2;

/// Laid out as <winnt.h> does, as far as the library uses it.
union LARGE_INTEGER
{
    struct
    {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

/// Opens, without blocking, a regular file or a device that never blocks (null, zero, full). A folder fails with ERROR_ACCESS_DENIED,
/// everything else with ERROR_NOT_SUPPORTED. Without sharing, every other open is excluded; with any sharing, opens without it are. A
/// conflict fails with ERROR_SHARING_VIOLATION. Only opens by this call take part, and only on file systems that have locks (flock); a file
/// can always be deleted.
QUENDRA_PLATFORM_API HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD sharing, void* security, DWORD disposition, DWORD attributes,
                                        HANDLE pattern) noexcept;
/// Makes a path absolute. Dots in it stay, because links decide where they lead. The file part must be null (else ERROR_INVALID_PARAMETER).
/// @return how many characters were written without the terminator, or with it where they do not fit; 0 on failure.
QUENDRA_PLATFORM_API DWORD GetFullPathNameW(LPCWSTR path, DWORD capacity, LPWSTR fullPath, LPWSTR* filePart) noexcept;
/// A regular file is a disk file, a device a character file.
QUENDRA_PLATFORM_API DWORD GetFileType(HANDLE file) noexcept;
QUENDRA_PLATFORM_API BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) noexcept;
QUENDRA_PLATFORM_API BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD method) noexcept;
/// The overlapped argument must be null (else ERROR_INVALID_PARAMETER); a read at the end gives 0 bytes.
QUENDRA_PLATFORM_API BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD bytes, DWORD* bytesRead, void* overlapped) noexcept;
/// The overlapped argument must be null (else ERROR_INVALID_PARAMETER).
QUENDRA_PLATFORM_API BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD bytes, DWORD* bytesWritten, void* overlapped) noexcept;

/// Linux has no debugger output: the text is dropped.
QUENDRA_PLATFORM_API void OutputDebugStringW(LPCWSTR text) noexcept;

// Registry values (<winreg.h>), read from JSON files: see RegistryFile.cpp for their form and places.

struct HKEY__;
using HKEY = HKEY__*;
using REGSAM = DWORD;

inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(0x80000001));  // NOLINT(performance-no-int-to-ptr)
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(0x80000002)); // NOLINT(performance-no-int-to-ptr)
inline const HKEY HKEY_USERS = reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(0x80000003));         // NOLINT(performance-no-int-to-ptr)

inline constexpr REGSAM KEY_QUERY_VALUE = 1;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_MULTI_SZ = 7;

QUENDRA_PLATFORM_API LSTATUS RegOpenKeyExW(HKEY root, LPCWSTR subKey, DWORD options, REGSAM access, HKEY* key) noexcept;
/// Text data is stored in this platform's wchar_t, NUL-terminated; sizes are in bytes.
QUENDRA_PLATFORM_API LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size) noexcept;
QUENDRA_PLATFORM_API LSTATUS RegCloseKey(HKEY key) noexcept;

// Text (<stringapiset.h>). Every code page is UTF-8 here.

inline constexpr UINT CP_ACP = 0;
inline constexpr UINT CP_THREAD_ACP = 3;
inline constexpr UINT CP_UTF8 = 65001;

/// Invalid UTF-8 becomes U+FFFD; flags must be 0.
QUENDRA_PLATFORM_API int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int bytes, LPWSTR wide, int capacity) noexcept;
/// A surrogate pair becomes its code point, a lone surrogate or a value beyond Unicode U+FFFD; flags must be 0.
QUENDRA_PLATFORM_API int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int characters, LPSTR text, int capacity,
                                             LPCSTR defaultCharacter, BOOL* usedDefault) noexcept;

inline constexpr int CSTR_LESS_THAN = 1;
inline constexpr int CSTR_EQUAL = 2;
inline constexpr int CSTR_GREATER_THAN = 3;

/// Without case by Unicode's mappings of single characters; letters beyond ASCII never equal ASCII ones.
QUENDRA_PLATFORM_API int CompareStringOrdinal(LPCWSTR left, int leftLength, LPCWSTR right, int rightLength, BOOL ignoreCase) noexcept;

// Time (<timezoneapi.h>, <sysinfoapi.h>).

struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct SYSTEMTIME
{
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

/// Fails with ERROR_INVALID_PARAMETER on an impossible date or time, or a year outside 1601 to 30827.
QUENDRA_PLATFORM_API BOOL SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* fileTime) noexcept;
/// Fails with ERROR_INVALID_PARAMETER on a value of 0x8000000000000000 or more.
QUENDRA_PLATFORM_API BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* time) noexcept;
QUENDRA_PLATFORM_API void GetSystemTimeAsFileTime(FILETIME* fileTime) noexcept;

// Identifiers (<combaseapi.h>).

/// Returns the number of characters written with the terminator (39), or 0 where they do not fit.
QUENDRA_PLATFORM_API int StringFromGUID2(const GUID& guid, LPWSTR text, int capacity) noexcept;

} // namespace Quendra::Platform
