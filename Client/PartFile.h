#pragma once

/// @file
/// A file while it is received: the target is unchanged until the new file is complete.

#include <cstdint>
#include <string>

/// A file beside its target, with `.part` appended to the target's name. It is removed unless it replaces the target or is kept.
class PartFile
{
public:
    /// Creates an empty file. If the target is a link, the file that it leads to is the target.
    /// @param target  as the library takes it.
    /// @param shown   the target as the user wrote it.
    /// @throws ProgramError if it cannot be created, or the target is not a regular file that may be replaced.
    PartFile(std::wstring target, std::wstring shown);
    ~PartFile();

    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    [[nodiscard]] const std::wstring& Path() const { return m_path; }

    /// Path and target as the user can write them.
    [[nodiscard]] const std::wstring& Shown() const { return m_shown; }
    [[nodiscard]] const std::wstring& ShownTarget() const { return m_shownTarget; }

    [[nodiscard]] std::uint64_t Size() const;

    void Keep() { m_isKept = true; }

    /// Replaces the target with the file, atomically.
    /// @throws ProgramError where that fails; the file is kept then.
    void ReplaceTarget();

private:
    void FollowLinks();

    std::wstring m_target;
    std::wstring m_shownTarget;
    std::wstring m_path;
    std::wstring m_shown;
    bool m_isKept = false;
};
