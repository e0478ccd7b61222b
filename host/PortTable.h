// The port pipes of the process, by address.
#pragma once

#include "ports/packet/PortAddress.h"
#include "transport/TransportHost.h"
#include "win32/CriticalSection.h"
#include "win32/Windows.h"

#include <cstdint>
#include <map>
#include <memory>
#include <span>

class CCDevicePortPipe;

/// At most one port for each address. Changed by the main thread only; the transport's threads reach ports through
/// the calls below that hold the lock shared for their short length, so a port that is found lives until the call
/// is over. A port is deleted after the lock was released: its destructor waits for its thread.
class PortTable final : public IPortDirectory
{
public:
    PortTable();
    ~PortTable();

    /// Null when there is none. Main thread; the port stays until the main thread removes it.
    CCDevicePortPipe* FindPort(PortAddress address) const noexcept;

    /// Main thread. An existing entry is kept and `pipe` deleted. Throws std::bad_alloc.
    void AddPort(PortAddress address, std::unique_ptr<CCDevicePortPipe> pipe);

    /// Main thread. The port, for the caller to delete, or null.
    std::unique_ptr<CCDevicePortPipe> RemovePort(PortAddress address) noexcept;

    /// Main thread. Empties the table, tells all ports to stop, then deletes them.
    void DeleteAllPorts() noexcept;

    /// Main thread. Tells all ports to stop and returns at once. DeleteAllPorts then waits for their clients at
    /// most `flushLimitMs` in all; without limit when that is 0.
    void BeginStopAllPorts(DWORD flushLimitMs) noexcept;

    // IPortDirectory
    bool SendToPort(PortAddress address, CCommunicationDriver* source,
                    std::span<const std::uint8_t> payload) override;
    void SendToPorts(std::int32_t port, CCommunicationDriver* source,
                     std::span<const std::uint8_t> payload) override;
    void PacketCompleted(PortAddress address) noexcept override;
    void SignalAllPorts() noexcept override;

private:
    using Ports = std::map<std::uint64_t, std::unique_ptr<CCDevicePortPipe>>;

    /// Device type in the upper 32 bits, port in the lower.
    static std::uint64_t KeyOf(PortAddress address) noexcept;
    CCDevicePortPipe* FindLocked(PortAddress address) const noexcept REQUIRES_SHARED(m_lock);

    mutable win32::SharedLock m_lock;
    Ports m_ports GUARDED_BY(m_lock);
};
