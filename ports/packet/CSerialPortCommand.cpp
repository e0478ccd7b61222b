#include "ports/packet/CSerialPortCommand.h"

#include <algorithm>
#include <cstring>

CSerialPortCommand::CSerialPortCommand(const std::uint8_t* bytes, std::int32_t length, bool flag, bool withEvent,
                                       std::size_t capacity)
    : m_WithEvent(withEvent), m_Flag(flag)
{
    const std::size_t wanted = length > 0 ? static_cast<std::size_t>(length) : 0;
    m_Packet.reserve(std::max({InitialCapacity, capacity, wanted}));
    if (withEvent) {
        m_Completion.emplace(win32::Event::Kind::ManualReset);
    }
    Append(bytes, length);
}

CSerialPortCommand::CSerialPortCommand(const CSerialPortCommand& other)
    : m_Packet(other.m_Packet),
      m_Reply(other.m_Reply),
      m_address(other.m_address),
      m_WithEvent(false),
      m_Flag(other.m_Flag)
{
}

std::int32_t CSerialPortCommand::Append(const std::uint8_t* bytes, std::int32_t length)
{
    if (bytes != nullptr && length >= 1) {
        m_Packet.insert(m_Packet.end(), bytes, bytes + length);
    }
    return GetLength();
}

const std::uint8_t* CSerialPortCommand::Find(const std::uint8_t* pattern, std::int32_t patternLength,
                                             std::int32_t start, std::int32_t limit) const noexcept
{
    const std::int32_t length = GetLength();
    const std::int32_t end = limit >= 0 ? std::min(limit, length) : length;
    if (pattern == nullptr || patternLength < 1 || start < 0) {
        return nullptr;
    }
    for (std::int32_t at = start; at < end && patternLength <= length - at; ++at) {
        if (std::memcmp(m_Packet.data() + at, pattern, static_cast<std::size_t>(patternLength)) == 0) {
            return m_Packet.data() + at;
        }
    }
    return nullptr;
}
