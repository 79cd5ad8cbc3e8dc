#include "PartFile.h"

#include "FailureText.h"
#include "Failures.h"
#include "System.h"
#include "TerminalText.h"

#include "Platform/Platform.h"
#include "QuendraHttp/ResultMeanings.h"

#include <filesystem>
#include <system_error>
#include <utility>

namespace
{

constexpr int kMostParts = 100;
// File systems limit names to 255 bytes: the part file of a longer name does not contain it.
constexpr std::size_t kLongestName = 200;

std::wstring PartName(const std::filesystem::path& target, int number)
{
    const std::filesystem::path name = target.filename();
    const std::wstring stem = name.u8string().size() > kLongestName ? L"download" : System::ToText(name);
    return stem + (number > 1 ? L"." + std::to_wstring(number) : std::wstring()) + L".part";
}

std::wstring Beside(const std::wstring& path, const std::wstring& name)
{
    return System::ToText(System::ToPath(path).replace_filename(System::ToPath(name)));
}

} // namespace

PartFile::PartFile(std::wstring target, std::wstring shown) : m_target(std::move(target)), m_shownTarget(std::move(shown))
{
    FollowLinks();
    System::FileFacts facts;
    if (System::ReadFileFacts(m_target, facts) == Result::Success && !facts.isRegular)
        throw ProgramError(Printable(m_shownTarget) + " is not a regular file: get replaces no other");

    ResultCode code = ERROR_FILE_EXISTS;
    for (int number = 1; code == ERROR_FILE_EXISTS && number <= kMostParts; ++number)
    {
        const std::wstring name = PartName(System::ToPath(m_target), number);
        m_path = Beside(m_target, name);
        m_shown = Beside(m_shownTarget, name);
        code = System::MakeSuccessor(m_path, m_target);
    }
    if (code == ERROR_FILE_EXISTS)
        throw ProgramError("Beside " + Printable(m_shownTarget) + " are " + std::to_string(kMostParts) +
                           " part files of interrupted downloads: remove those that nobody needs");
    if (code != Result::Success)
        throw ProgramError(Printable(m_shownTarget) + " cannot be written: " + CodeText(code) + ", " + Result::MeaningOf(code));
}

PartFile::~PartFile()
{
    std::error_code ignored;
    if (!m_isKept)
        std::filesystem::remove(System::ToPath(m_path), ignored);
}

// The file that a link leads to need not exist yet.
void PartFile::FollowLinks()
{
    constexpr int kMostLinks = 40;
    std::error_code error;
    std::filesystem::path target = System::ToPath(m_target);
    for (int links = 0; links < kMostLinks && std::filesystem::is_symlink(target, error); ++links)
    {
        const std::filesystem::path next = std::filesystem::read_symlink(target, error);
        if (error)
            return;
        target = target.parent_path() / next;
        m_target = m_shownTarget = System::ToText(target);
    }
}

std::uint64_t PartFile::Size() const
{
    System::FileFacts facts;
    return System::ReadFileFacts(m_path, facts) == Result::Success ? static_cast<std::uint64_t>(facts.size) : 0;
}

void PartFile::ReplaceTarget()
{
    m_isKept = true;
    std::error_code error;
    std::filesystem::rename(System::ToPath(m_path), System::ToPath(m_target), error);
    if (error)
        throw ProgramError(Printable(m_shown) + " is whole, but cannot take the place of " + Printable(m_shownTarget) + ": " +
                           error.message());
}
