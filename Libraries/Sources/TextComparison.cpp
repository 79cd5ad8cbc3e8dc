#include "TextComparison.h"

#include "Platform/Platform.h"

#include <algorithm>
#include <limits>

namespace
{

char ToUpperAscii(char character)
{
    return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}

} // namespace

bool EqualIgnoringCase(std::wstring_view left, std::wstring_view right)
{
    if (left.size() != right.size() || left.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return false;
    if (left.empty())
        return true;
    const int length = static_cast<int>(left.size());
    return CompareStringOrdinal(left.data(), length, right.data(), length, TRUE) == CSTR_EQUAL;
}

bool EqualIgnoringAsciiCase(std::string_view text, std::string_view ascii)
{
    return std::equal(text.begin(), text.end(), ascii.begin(), ascii.end(),
                      [](char left, char right) { return ToUpperAscii(left) == ToUpperAscii(right); });
}
