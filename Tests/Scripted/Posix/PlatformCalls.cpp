// Calls outside WinHTTP, and of the C library: each is the system's own, found behind this program's, unless it is to fail.

#include "Scripted/PlatformSteps.h"

#include "Platform/Platform.h"

#include <cerrno>
#include <dlfcn.h>
#include <sys/types.h>

namespace
{

// The function of this name that would be called if this program did not define it.
template <typename Function> Function* Next(Function* own)
{
    const Uncounted pause;
    Dl_info info = {};
    return ::dladdr(reinterpret_cast<void*>(own), &info) != 0 ? reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, info.dli_sname)) : nullptr;
}

} // namespace

// NOLINTBEGIN(bugprone-macro-parentheses): a list of parameters and one of arguments
#define PLATFORM_CALL(result, name, failure, parameters, ...)                                                                              \
    __attribute__((visibility("default"))) result name parameters                                                                          \
    {                                                                                                                                      \
        static const auto next = Next(&name);                                                                                              \
        return IsToFail(#name) ? failure : next(__VA_ARGS__);                                                                              \
    }
// NOLINTEND(bugprone-macro-parentheses)

namespace Quendra::Platform
{
PLATFORM_CALL(HANDLE, CreateFileW, INVALID_HANDLE_VALUE, (LPCWSTR a, DWORD b, DWORD c, void* d, DWORD e, DWORD f, HANDLE g) noexcept, a, b,
              c, d, e, f, g)
PLATFORM_CALL(DWORD, GetFileType, FILE_TYPE_UNKNOWN, (HANDLE a) noexcept, a)
PLATFORM_CALL(DWORD, GetFullPathNameW, 0, (LPCWSTR a, DWORD b, LPWSTR c, LPWSTR* d) noexcept, a, b, c, d)
PLATFORM_CALL(BOOL, GetFileSizeEx, FALSE, (HANDLE a, LARGE_INTEGER* b) noexcept, a, b)
PLATFORM_CALL(BOOL, SetFilePointerEx, FALSE, (HANDLE a, LARGE_INTEGER b, LARGE_INTEGER* c, DWORD d) noexcept, a, b, c, d)
PLATFORM_CALL(BOOL, ReadFile, FALSE, (HANDLE a, LPVOID b, DWORD c, DWORD* d, void* e) noexcept, a, b, c, d, e)
PLATFORM_CALL(BOOL, WriteFile, FALSE, (HANDLE a, LPCVOID b, DWORD c, DWORD* d, void* e) noexcept, a, b, c, d, e)
PLATFORM_CALL(DWORD, WaitForSingleObject, WAIT_FAILED, (HANDLE a, DWORD b) noexcept, a, b)
PLATFORM_CALL(LSTATUS, RegOpenKeyExW, LSTATUS{5}, (HKEY a, LPCWSTR b, DWORD c, REGSAM d, HKEY* e) noexcept, a, b, c, d, e)
PLATFORM_CALL(LSTATUS, RegQueryValueExW, LSTATUS{5}, (HKEY a, LPCWSTR b, DWORD* c, DWORD* d, BYTE* e, DWORD* f) noexcept, a, b, c, d, e, f)
PLATFORM_CALL(int, MultiByteToWideChar, 0, (UINT a, DWORD b, LPCSTR c, int d, LPWSTR e, int f) noexcept, a, b, c, d, e, f)
PLATFORM_CALL(int, WideCharToMultiByte, 0, (UINT a, DWORD b, LPCWSTR c, int d, LPSTR e, int f, LPCSTR g, BOOL* h) noexcept, a, b, c, d, e,
              f, g, h)
PLATFORM_CALL(int, CompareStringOrdinal, 0, (LPCWSTR a, int b, LPCWSTR c, int d, BOOL e) noexcept, a, b, c, d, e)
PLATFORM_CALL(BOOL, SystemTimeToFileTime, FALSE, (const SYSTEMTIME* a, FILETIME* b) noexcept, a, b)
PLATFORM_CALL(BOOL, FileTimeToSystemTime, FALSE, (const FILETIME* a, SYSTEMTIME* b) noexcept, a, b)
PLATFORM_CALL(HRESULT, CoCreateGuid, E_FAIL, (GUID * a) noexcept, a)
PLATFORM_CALL(int, StringFromGUID2, 0, (const GUID& a, LPWSTR b, int c) noexcept, a, b, c)
} // namespace Quendra::Platform

extern "C"
{
    PLATFORM_CALL(ssize_t, read, (errno = EIO, -1), (int a, void* b, size_t c), a, b, c)
    PLATFORM_CALL(ssize_t, getrandom, ssize_t{-1}, (void* a, size_t b, unsigned c), a, b, c)
}
