#include "TextComparison.h"

#include "Platform/Platform.h"

#include <limits>

bool EqualIgnoringCase(std::wstring_view left, std::wstring_view right)
{
    if (left.size() != right.size() || left.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return false;
    if (left.empty())
        return true;
    const int length = static_cast<int>(left.size());
    return CompareStringOrdinal(left.data(), length, right.data(), length, TRUE) == CSTR_EQUAL;
}
