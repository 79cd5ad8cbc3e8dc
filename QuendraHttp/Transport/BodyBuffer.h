#pragma once

/// @file
/// The bytes of a request's body that are collected before they are sent. They may hold passwords: every byte that the buffer
/// gives up is overwritten first.

#include "Wiping.h"

#include "Platform/Platform.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

/// A block on the runtime heap that doubles until what is appended fits.
class BodyBuffer
{
public:
    /// @throws std::bad_alloc
    BodyBuffer();
    ~BodyBuffer() { Clear(); }

    BodyBuffer(const BodyBuffer&) = delete;
    BodyBuffer& operator=(const BodyBuffer&) = delete;

    /// @throws std::bad_alloc where memory runs out or the body would pass 4 GiB; nothing is appended then.
    void Append(std::string_view bytes);

    /// Forgets the collected bytes; the capacity stays.
    void Clear() noexcept;

    /// Hands the collected bytes over to another buffer, without a copy, and takes what it has, wiped.
    void MoveTo(BodyBuffer& other) noexcept;

    [[nodiscard]] char* Data() noexcept { return m_block.get(); }
    [[nodiscard]] DWORD Length() const noexcept { return m_length; }

private:
    struct Free
    {
        void operator()(char* block) const noexcept { std::free(block); } // NOLINT(cppcoreguidelines-no-malloc)
    };
    using Block = std::unique_ptr<char, Free>;

    static Block Allocate(std::uint64_t bytes);

    static constexpr DWORD kInitialCapacity = 8192;

    DWORD m_capacity = kInitialCapacity;
    Block m_block;
    DWORD m_length = 0;
};
