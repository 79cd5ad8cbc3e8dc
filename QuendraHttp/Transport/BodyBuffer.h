#pragma once

/// @file
/// Collects a request's body before it is sent. The body may contain passwords, so memory is wiped before it is freed.

#include "Wiping.h"

#include "Platform/Platform.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

/// A heap block that doubles its size as needed.
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

    /// Wipes and removes the collected bytes; keeps the capacity.
    void Clear() noexcept;

    /// Moves the collected bytes to another buffer without copying. Takes the other's block in return, wiped.
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
