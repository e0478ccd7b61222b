// What the threads of the transport share about the connection to the instrument.
#pragma once

#include "transport/TransportHost.h"
#include "win32/Event.h"
#include "win32/MirroredEvent.h"

#include <atomic>
#include <cstdint>

/// How long a thread of the transport waits for work before it looks after the connection.
inline constexpr DWORD TransportIdleMs = 1000;

/// The longest block that is read from the instrument at a time.
inline constexpr std::uint32_t TransferLength = 65535;

/// Owned by the driver and lent to its parts. Any thread may use any member.
class Connection
{
public:
    /// `ports` is borrowed.
    explicit Connection(IPortDirectory& ports) noexcept : m_ports(ports) {}

    IPortDirectory& Ports() const noexcept { return m_ports; }
    bool IsOpen() const noexcept { return !m_hDisconnected.IsSet(); }

    /// For use after a failed transfer: the ports recreate their pipes, the connect procedure runs.
    void Drop()
    {
        m_ports.SignalAllPorts();
        m_hDisconnected.Set();
    }

    /// Counts the bytes of a completed transfer.
    void CountTransferred(std::uint32_t bytes) noexcept
    {
        m_nTransferredBytes.fetch_add(bytes, std::memory_order_relaxed);
    }
    std::uint32_t TransferredBytes() const noexcept { return m_nTransferredBytes.load(std::memory_order_relaxed); }

    win32::MirroredEvent m_hDisconnected; // set: not connected, run the connect procedure
    win32::MirroredEvent m_hStop;
    win32::Event m_hStopRead{win32::Event::Kind::ManualReset};
    std::atomic<bool> m_bTerminate{false};       // set by the command thread: no host program is left
    std::atomic<bool> m_bFirstReadFailed{false}; // set by a read thread that ends without having read anything

private:
    IPortDirectory& m_ports;
    std::atomic<std::uint32_t> m_nTransferredBytes{0};
};
