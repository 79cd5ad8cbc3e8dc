#pragma once

/// @file
/// Texts that may hold a password or a token: their memory is overwritten before it is given back.

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace Quendra::Platform
{

/// Overwrites memory before it frees it, so that a growing container leaves no copy behind.
template <typename Type> struct WipingAllocator
{
    using value_type = Type;

    WipingAllocator() = default;
    template <typename Other> WipingAllocator(const WipingAllocator<Other>&) noexcept {}

    Type* allocate(std::size_t count) { return std::allocator<Type>().allocate(count); }
    void deallocate(Type* memory, std::size_t count) noexcept
    {
        ::explicit_bzero(memory, count * sizeof(Type));
        std::allocator<Type>().deallocate(memory, count);
    }

    bool operator==(const WipingAllocator&) const = default;
};

/// Used for bytes, too: a std::vector with a custom allocator copies one byte at a time.
using SecretText = std::basic_string<char, std::char_traits<char>, WipingAllocator<char>>;

/// Wipes a text of another type at the end of the scope.
template <typename Text> struct WipedAtEnd
{
    Text text;

    ~WipedAtEnd() { ::explicit_bzero(text.data(), text.size() * sizeof(typename Text::value_type)); }
};

/// Moves a text into one that is wiped.
[[nodiscard]] inline SecretText MakeSecret(std::string&& text)
{
    const WipedAtEnd<std::string> given{std::move(text)};
    return SecretText(given.text);
}

} // namespace Quendra::Platform
