#pragma once

// As much of the standard library as the public headers name: enough for a compiler that lays out virtual tables for MSVC on a
// machine without MSVC's headers. Nothing here can run.

typedef unsigned long long size_t;

namespace std
{

using ::size_t;
using int32_t = int;
using int64_t = long long;
using uint16_t = unsigned short;
using uint32_t = unsigned int;
using uint64_t = unsigned long long;

template <typename Element> struct initializer_list
{
    const Element* begin() const;
    const Element* end() const;

    const Element* first;
    size_t count;
};

template <typename Element, size_t Count> struct array
{
    Element& operator[](size_t index) { return elements[index]; }

    Element elements[Count];
};

template <typename Character> class basic_string
{
};
using string = basic_string<char>;
using wstring = basic_string<wchar_t>;

template <typename Element> class list
{
};
template <typename Element> class vector;
template <typename Object> class shared_ptr
{
};
template <typename Object> class enable_shared_from_this
{
};

} // namespace std
