// Received bytes that wait until they form whole packets. Portable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// A growable byte array with a cursor: taking bytes from the front moves the cursor, and the rest is moved to the
/// front once per appended block, not once per packet. One thread.
class ReceiveBuffer
{
public:
    /// Appends a copy of `bytes`. Spans from Bytes() are invalid afterwards.
    void Append(std::span<const std::uint8_t> bytes)
    {
        if (m_taken != 0) {
            m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_taken));
            m_taken = 0;
        }
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    }

    std::span<const std::uint8_t> Bytes() const noexcept { return std::span(m_bytes).subspan(m_taken); }
    std::size_t Size() const noexcept { return m_bytes.size() - m_taken; }

    /// Takes `count` bytes (at most Size()) from the front. They stay readable until the next Append.
    void Consume(std::size_t count) noexcept { m_taken += count; }

    void Clear() noexcept
    {
        m_bytes.clear();
        m_taken = 0;
    }

private:
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_taken = 0; // bytes at the front of m_bytes that are already consumed
};
