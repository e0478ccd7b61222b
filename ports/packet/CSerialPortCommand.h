// One packet in flight.
#pragma once

#include "ports/packet/PortAddress.h"
#include "win32/Event.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// Owns a copy of its bytes. Created by its producer, owned by the queue while queued, destroyed by the
/// thread that pops it. One thread at a time.
class CSerialPortCommand
{
public:
    /// Appends `length` bytes as Append does. `capacity` is a hint: how many bytes the packet will have in the
    /// end, so that they are allocated once.
    CSerialPortCommand(const std::uint8_t* bytes, std::int32_t length, bool flag, bool withEvent,
                       std::size_t capacity = 0);
    /// The copy has the flag and the bytes, never an event.
    CSerialPortCommand(const CSerialPortCommand& other);
    CSerialPortCommand& operator=(const CSerialPortCommand&) = delete;
    virtual ~CSerialPortCommand() = default;

    /// Appends a copy of the bytes and returns the new length; a null pointer or a length below 1 changes nothing.
    std::int32_t Append(const std::uint8_t* bytes, std::int32_t length);

    const std::uint8_t* GetData() const noexcept { return m_Packet.data(); }
    std::int32_t GetLength() const noexcept { return static_cast<std::int32_t>(m_Packet.size()); }
    std::span<const std::uint8_t> Bytes() const noexcept { return m_Packet; }

    /// Where a framed packet goes, as it stands in its frame.
    PortAddress Address() const noexcept { return m_address; }
    void SetAddress(PortAddress address) noexcept { m_address = address; }

    /// No producer fills the reply bytes; they are copied and offered like the packet's.
    const std::uint8_t* GetReplyData() const noexcept { return m_Reply.data(); }
    std::int32_t GetReplyLength() const noexcept { return static_cast<std::int32_t>(m_Reply.size()); }

    /// The byte at `index`, 255 past the end.
    std::uint8_t GetByteAt(std::uint32_t index) const noexcept
    {
        return index < m_Packet.size() ? m_Packet[index] : 255;
    }
    void ClearData() noexcept { m_Packet.clear(); }

    /// First match of the pattern that begins at `start` or later and, when `limit` is not negative, before
    /// min(limit, length). Only the beginning of a match is bounded by `limit`, not its end; that is deliberate. A
    /// match never reaches beyond the data. Null when there is none.
    const std::uint8_t* Find(const std::uint8_t* pattern, std::int32_t patternLength, std::int32_t start,
                             std::int32_t limit) const noexcept;

    bool HasEvent() const noexcept { return m_WithEvent; }
    HANDLE GetEvent() const noexcept { return m_Completion ? m_Completion->Get() : nullptr; }
    bool GetFlag() const noexcept { return m_Flag; }

private:
    static constexpr std::size_t InitialCapacity = 10;

    std::vector<std::uint8_t> m_Packet;
    std::vector<std::uint8_t> m_Reply;
    PortAddress m_address;
    bool m_WithEvent;
    bool m_Flag;                              // set by every producer, never read
    std::optional<win32::Event> m_Completion; // manual reset; only with m_WithEvent
};
