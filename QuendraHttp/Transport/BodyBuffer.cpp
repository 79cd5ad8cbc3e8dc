#include "Transport/BodyBuffer.h"

#include <cstring>
#include <limits>
#include <new>
#include <utility>

BodyBuffer::BodyBuffer() : m_block(Allocate(m_capacity))
{
    *m_block = '\0';
}

BodyBuffer::Block BodyBuffer::Allocate(std::uint64_t bytes)
{
    if (bytes > std::numeric_limits<DWORD>::max())
        throw std::bad_alloc();
    Block block(static_cast<char*>(std::malloc(static_cast<std::size_t>(bytes)))); // NOLINT(cppcoreguidelines-no-malloc)
    if (!block)
        throw std::bad_alloc();
    return block;
}

void BodyBuffer::Append(std::string_view bytes)
{
    std::uint64_t capacity = m_capacity;
    while (m_length + std::uint64_t{bytes.size()} > capacity)
        capacity *= 2;
    if (capacity != m_capacity)
    {
        Block larger = Allocate(capacity);
        std::memcpy(larger.get(), m_block.get(), m_length);
        WipeMemory(m_block.get(), m_length);
        m_block = std::move(larger);
        m_capacity = static_cast<DWORD>(capacity);
    }
    std::memcpy(m_block.get() + m_length, bytes.data(), bytes.size());
    m_length += static_cast<DWORD>(bytes.size());
}

void BodyBuffer::MoveTo(BodyBuffer& other) noexcept
{
    other.Clear();
    std::swap(m_capacity, other.m_capacity);
    std::swap(m_block, other.m_block);
    std::swap(m_length, other.m_length);
}

void BodyBuffer::Clear() noexcept
{
    WipeMemory(m_block.get(), m_length);
    m_length = 0;
}
