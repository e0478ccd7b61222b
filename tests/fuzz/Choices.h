// The bytes of a run as a series of choices, for targets that need more than a block of bytes.
#pragma once

#include "tests/fuzz/Target.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace fuzz {

/// Choices come from the front. When the bytes are used up every choice is 0.
class Choices
{
public:
    explicit Choices(Input input) noexcept : m_rest(input) {}

    bool AtEnd() const noexcept { return m_rest.empty(); }
    std::size_t Left() const noexcept { return m_rest.size(); }

    std::uint8_t Byte() noexcept
    {
        if (m_rest.empty()) {
            return 0;
        }
        const std::uint8_t byte = m_rest.front();
        m_rest = m_rest.subspan(1);
        return byte;
    }
    std::uint32_t Word() noexcept
    {
        const std::uint32_t high = Byte();
        return high << 8 | Byte();
    }
    /// 0 to limit - 1; one byte for up to 256, two beyond.
    std::uint32_t Below(std::uint32_t limit) noexcept { return (limit <= 256 ? Byte() : Word()) % limit; }
    /// The next bytes: `count`, or what is left.
    Input Bytes(std::size_t count) noexcept
    {
        const Input taken = m_rest.first(std::min(count, m_rest.size()));
        m_rest = m_rest.subspan(taken.size());
        return taken;
    }
    Input Rest() noexcept { return Bytes(m_rest.size()); }

private:
    Input m_rest;
};

} // namespace fuzz
