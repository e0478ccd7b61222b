// The router's end of one client connection: one named pipe for one port address.
//
// The port's own worker thread (PipeProcessThread) does all pipe I/O. The transport's reply thread comes through
// Send, its command thread through PacketCompleted and RequestPipeRecreate, the main thread through the
// constructor and the destructor.
#pragma once

#include "ports/CSimulationDevice.h"
#include "ports/PortSettings.h"
#include "ports/PortState.h"
#include "ports/RequestReader.h"
#include "transport/CCommunicationDriver.h"
#include "win32/Thread.h"

#include <cstdint>
#include <span>
#include <string>

/// Messages on the pipe are bare payloads. The router reads in byte mode: what a client writes faster than the
/// router reads arrives merged in one packet.
class CCDevicePortPipe : public CSimulationDevice
{
public:
    /// Starts serving "\\.\pipe\" + `pipeName` (an empty name never opens). `transport` is borrowed and must
    /// outlive the port. `readBufferSize` bounds a client message and is the pipe's buffer towards the client;
    /// `writeBufferSize` is the pipe's buffer from the client. Throws nothing but std::bad_alloc.
    CCDevicePortPipe(CCommunicationDriver* transport, PortAddress address, std::string pipeName,
                     std::int32_t readBufferSize, std::int32_t writeBufferSize, PortOptions options = {});

    /// Ends the worker and closes the pipe. Waits for the client to read what was written into the pipe or to
    /// close its end; with a flush limit at most that long, counted from BeginStop.
    ~CCDevicePortPipe() override;

    /// Tells the worker to end and returns at once, so that several ports can stop together; the destructor then
    /// waits. `flushLimitMs` replaces the port's own limit. The thread that destroys the port.
    void BeginStop(DWORD flushLimitMs) noexcept;
    /// The same with the port's own limit.
    void BeginStop() noexcept { BeginStop(m_flushLimitMs); }
    bool IsStopping() const noexcept { return m_state.StopEvent.IsSet(); }

    /// Queues a packet's payload for the client; dropped with a trace while no client is connected. `source` is
    /// the transport that the packet came through, null when it came from a simulation. Any thread; copies it.
    void Send(CCommunicationDriver* source, std::span<const std::uint8_t> payload);

    bool IsPipeConnected() const noexcept { return m_state.IsPipeConnected.load(std::memory_order_relaxed); }

    /// Makes the worker recreate the pipe. Any thread.
    void RequestPipeRecreate() noexcept;

    /// The write of one of this port's packets to the instrument has begun. Any thread. Returns the packets still
    /// pending.
    std::int32_t PacketCompleted() noexcept;

    std::int32_t DeviceType() const noexcept { return m_settings.address.deviceType; }
    std::int32_t Port() const noexcept { return m_settings.address.port; }

protected:
    /// Handles one client message; whether it was submitted. Worker only.
    bool OnPipePacket(RequestReader::Message message);

    /// Shared with the worker.
    PortState m_state;

private:
    /// Queued packets that Send accepts while its limit is switched on.
    static constexpr std::int32_t QueueLimit = 500;

    /// Body of the worker thread; ends at once for an empty pipe name.
    void PipeProcessThread();

    /// Whether the instrument's connection is still the one that the pipe was created for. Worker only.
    bool IsOfThisConnection() const noexcept;

    // Immutable after construction.
    CCommunicationDriver* const m_Transport; // borrowed
    const PortSettings m_settings;
    const bool QueueLimitEnabled = false; // dormant by design: nothing sets it

    // Of the thread that destroys the port.
    DWORD m_flushLimitMs;      // 0: no limit
    ULONGLONG m_stopBegan = 0; // GetTickCount64

    win32::Thread m_Worker; // last, so that it ends first
};
