// In place of ports/packet/CSerialPortCommand.h for the model of the queue: a packet of at most two bytes, in
// memory that the model checker does not watch.
#pragma once

#include "tests/relacy/Relacy.h"

#include "win32/Event.h"

class CSerialPortCommand : public relacytest::Unwatched
{
public:
    CSerialPortCommand(const std::uint8_t* bytes, std::int32_t length, bool /*flag*/, bool /*withEvent*/)
    {
        std::copy_n(bytes, length, m_bytes.begin());
    }
    std::uint8_t GetByteAt(std::uint32_t index) const noexcept { return m_bytes[index]; }

private:
    std::array<std::uint8_t, 2> m_bytes{};
};
