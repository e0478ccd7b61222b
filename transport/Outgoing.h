// Packets for the instrument: framed, numbered and queued for the command thread.
#pragma once

#include "ports/packet/CCommandQueue.h"
#include "ports/packet/CCriticalSectionHelper.h"
#include "ports/packet/WireFormat.h"
#include "transport/Connection.h"

#include <cstdint>
#include <span>

/// Any thread may call any member. Every packet in the queue has the address of its frame.
class Outgoing
{
public:
    /// `connection` is borrowed. Throws std::bad_alloc.
    explicit Outgoing(const Connection& connection) : m_connection(connection) {}
    ~Outgoing() { m_CommandQueue.DestroyAll(); }

    /// Frames a packet of `packetType` for the address (x, y) and queues it; copies the payload. The header states
    /// `length`, which is the payload's unless the caller has no data. Dropped with a trace when there is no
    /// connection. Throws std::bad_alloc, which leaves numbering and queue as they were.
    void Submit(std::uint8_t packetType, std::uint8_t x, std::uint8_t y, std::span<const std::uint8_t> payload,
                std::size_t length);

    /// A client's packet. Without memory it is dropped; its number is not used up, so the instrument sees no gap.
    /// By design the header states `length` also when `data` is null.
    void Send(std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length) noexcept
    {
        SubmitOrDrop(wire::PortTraffic, x, y, {data, data != nullptr ? length : 0}, length);
    }
    /// The packet that the router sends when nothing else happens.
    void SendIdlePacket() noexcept { SubmitOrDrop(wire::ControlPacket, IdleAddress, IdleAddress, {}, 0); }

    /// The number of the next packet; each one counts up, 0 follows 255.
    void SetNextNumber(std::uint8_t number) noexcept
    {
        const CCriticalSectionHelper lock(m_Lock);
        m_nNextPacketNumber = number;
    }
    std::uint8_t NextNumber() noexcept
    {
        const CCriticalSectionHelper lock(m_Lock);
        return m_nNextPacketNumber;
    }

    /// What was submitted, for the command thread.
    CCommandQueue& Queue() noexcept { return m_CommandQueue; }

private:
    static constexpr std::uint8_t IdleAddress = 238;

    void SubmitOrDrop(std::uint8_t packetType, std::uint8_t x, std::uint8_t y,
                      std::span<const std::uint8_t> payload, std::size_t length) noexcept;

    const Connection& m_connection;
    CCommandQueue m_CommandQueue;

    // Held during the push on m_CommandQueue as well, so that numbers stand in the queue in ascending order.
    win32::CriticalSection m_Lock;
    std::uint8_t m_nNextPacketNumber GUARDED_BY(m_Lock) = 0;

    const bool m_bLimitQueue = false; // dormant by design: nothing sets it
};
