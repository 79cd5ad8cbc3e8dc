// Ordinal comparison of wide text.

#include "../Ascii.h"
#include "Win32.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <locale.h> // NOLINT(modernize-deprecated-headers): newlocale is POSIX's, not <clocale>'s.

namespace Quendra::Platform
{

namespace
{

// The case mappings of all of Unicode, whatever locale the process has set. Never freed: any thread may read it until the process ends.
locale_t UnicodeLocale()
{
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
}

wchar_t UpperCase(wchar_t character, locale_t locale)
{
    constexpr wchar_t kLastAscii = 0x7F;
    if (character <= kLastAscii || locale == nullptr)
        return UpperAscii(character);
    // Windows leaves letters unchanged whose upper case would be ASCII, such as the dotless i.
    const auto upper = static_cast<wchar_t>(towupper_l(static_cast<wint_t>(character), locale));
    return upper <= kLastAscii ? character : upper;
}

int Sign(LPCWSTR left, int leftLength, LPCWSTR right, int rightLength, BOOL ignoreCase)
{
    const locale_t locale = ignoreCase != FALSE ? UnicodeLocale() : nullptr;
    for (int index = 0; index < std::min(leftLength, rightLength); ++index)
    {
        const wchar_t leftCharacter = ignoreCase != FALSE ? UpperCase(left[index], locale) : left[index];
        const wchar_t rightCharacter = ignoreCase != FALSE ? UpperCase(right[index], locale) : right[index];
        if (leftCharacter != rightCharacter)
            return leftCharacter < rightCharacter ? -1 : 1;
    }
    return leftLength == rightLength ? 0 : leftLength < rightLength ? -1 : 1;
}

} // namespace

int CompareStringOrdinal(LPCWSTR left, int leftLength, LPCWSTR right, int rightLength, BOOL ignoreCase) noexcept
{
    if (left == nullptr || right == nullptr || leftLength < -1 || rightLength < -1)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const int leftSize = leftLength == -1 ? static_cast<int>(std::wcslen(left)) : leftLength;
    const int rightSize = rightLength == -1 ? static_cast<int>(std::wcslen(right)) : rightLength;
    return CSTR_EQUAL + Sign(left, leftSize, right, rightSize, ignoreCase);
}

} // namespace Quendra::Platform
