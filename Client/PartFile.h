#pragma once

/// @file
/// A file while it is received: what it will replace stays as it is until the new one is whole.

#include <cstdint>
#include <string>

/// A file beside its target, with `.part` behind the target's name. It is removed where it is neither put in the target's place nor
/// kept.
class PartFile
{
public:
    /// Makes the file, empty. A target that is a link stands for what it leads to.
    /// @param target  as the library takes it.
    /// @param shown   the target as the user wrote it.
    /// @throws ProgramError where it cannot be made, or the target is no regular file that may be replaced.
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

    /// Puts the file in the target's place, in one step.
    /// @throws ProgramError where that fails; the file is kept then.
    void ReplaceTarget();

private:
    std::wstring m_target;
    std::wstring m_shownTarget;
    std::wstring m_path;
    std::wstring m_shown;
    bool m_isKept = false;
};
