#include "Transport/FileHandle.h"

#include "PathUtilities.h"

namespace
{

bool IsUsable(DWORD type, DWORD access)
{
    return type == FILE_TYPE_DISK || (type == FILE_TYPE_CHAR && (access & GENERIC_READ) == 0);
}

HANDLE Open(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition)
{
    // The system call would stop at the NUL and open another file.
    DWORD error = ERROR_INVALID_NAME;
    if (path.find(L'\0') == std::wstring::npos)
    {
        const HANDLE file = CreateFileW(OpenablePath(path).c_str(), access, sharing, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE || IsUsable(GetFileType(file), access))
            return file;
        CloseHandle(file);
        error = ERROR_NOT_SUPPORTED;
    }
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
}

} // namespace

std::wstring OpenablePath(const std::wstring& path)
{
    constexpr std::size_t classicLimit = 248; // the limit for folders, shorter than the limit for files
    const std::wstring absolute = PathUtilities::MakeAbsolute(path);
    if (absolute.starts_with(L'/') || path.starts_with(L"\\\\?\\"))
        return path; // other systems need no prefix
    if (path.starts_with(L"\\??\\"))
        return PathUtilities::NormalizePath(path);
    const bool isLimited = !absolute.starts_with(L"\\\\.\\");
    return isLimited && absolute.size() >= classicLimit ? PathUtilities::NormalizePath(absolute) : path;
}

FileHandle::FileHandle(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition)
    : m_file(Open(path, access, sharing, disposition))
{
}
