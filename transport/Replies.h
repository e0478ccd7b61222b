// From a completed read to the ports: the reply queue, the reply thread, and the delivery of packets.
#pragma once

#include "firmware/FirmwareDownloader.h"
#include "ports/packet/CCommandQueue.h"
#include "ports/packet/FrameReader.h"
#include "ports/packet/WireFormat.h"
#include "transport/CCommunicationDriver.h"
#include "transport/Connection.h"

#include <atomic>
#include <cstdint>
#include <span>

/// The reply thread runs everything here that does not name another thread; it alone touches the reader.
class Replies
{
public:
    /// All three are borrowed. `driver` is the transport whose replies these are: blocks go through its
    /// DispatchToDevice. Throws std::bad_alloc.
    Replies(CCommunicationDriver& driver, Connection& connection, FirmwareDownloader& firmware)
        : m_driver(driver), m_connection(connection), m_firmware(firmware)
    {
    }
    ~Replies() { m_ReplyQueue.DestroyAll(); }

    /// Queues a copy of received bytes for the reply thread. The thread that reads. The name keeps its three p's.
    void ApppendToReplyProcessQueue(std::span<const std::uint8_t> bytes) noexcept;

    /// Body of the reply thread, until the transport stops or no host program is left.
    void ReplyProcessThread();
    /// Ends the reply thread's wait, so that it sees a stop. Any thread.
    void Interrupt() { m_ReplyQueue.Interrupt(); }
    /// What a second without a block leads to; a block may have come in since.
    void OnQuietSecond();

    /// Takes received bytes, in any cut, and delivers the packets that they complete. Throws what a port throws;
    /// the packet is consumed nevertheless.
    void Dispatch(std::span<const std::uint8_t> bytes);

    /// The next packet may have any number: a new connection. The command thread.
    void BeginNumbering() noexcept { m_nLastPacketNumber = 0; }

    /// Received bytes that wait for the rest of their packet.
    std::size_t Buffered() const noexcept { return m_ReplyBuffer.Buffered(); }

private:
    /// What the reply thread has to do next; of several the first counts.
    enum class Slot { Stop, BlockQueued, TimedOut, Nothing };

    Slot Await();
    void HandleBlock();
    void Deliver(const wire::Frame& frame);
    void CheckNumber(std::uint8_t received);

    CCommunicationDriver& m_driver;
    Connection& m_connection;
    FirmwareDownloader& m_firmware;

    CCommandQueue m_ReplyQueue{CCommandQueue::Waiting::Alone}; // received blocks
    std::atomic<std::uint8_t> m_nLastPacketNumber{0};
    FrameReader m_ReplyBuffer; // kept over reconnects
};
