#pragma once

/// @file
/// Overwrites memory that held a password or a token before it is freed.

#include <cstddef>

/// Overwrites memory with zeros; the compiler cannot optimise it away.
inline void WipeMemory(void* memory, std::size_t bytes) noexcept
{
    volatile unsigned char* position = static_cast<unsigned char*>(memory);
    while (bytes-- != 0)
        *position++ = 0;
}

/// Wipes a text's characters when the scope ends.
template <typename Text> class ScopedWipe
{
public:
    explicit ScopedWipe(Text& text) noexcept : m_text(text) {}
    ~ScopedWipe() { WipeMemory(m_text.data(), m_text.size() * sizeof(typename Text::value_type)); }

    ScopedWipe(const ScopedWipe&) = delete;
    ScopedWipe& operator=(const ScopedWipe&) = delete;

private:
    Text& m_text;
};
