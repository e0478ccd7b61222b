// The one object that owns the connection to the instrument.
//
// Threads: the command thread (above normal priority) owns the connection and does all writes; a read thread runs
// while a USB connection is open; the reply thread sorts what was received to the ports. Submit runs on the ports'
// threads. In simulation mode the command thread talks to the simulator's pipe instead and reads from it as well.
#pragma once

#include "firmware/FirmwareDownloader.h"
#include "firmware/FirmwareTransport.h"
#include "ports/packet/CCommandQueue.h"
#include "ports/packet/ReceiveBuffer.h"
#include "ports/packet/WireFormat.h"
#include "transport/CCommunicationDriver.h"
#include "transport/TransportHost.h"
#include "win32/CriticalSection.h"
#include "win32/Event.h"
#include "win32/MirroredEvent.h"
#include "win32/Thread.h"

#include <atomic>
#include <cstdint>
#include <string>

class CCyUSBEndPoint;

class CCyUSBDriver final : public CCommunicationDriver, private IFirmwareTransport
{
public:
    /// Starts the command and reply threads. `host` is borrowed and must outlive the driver. Not connected until
    /// Reconnect() is called for the first time.
    CCyUSBDriver(bool simulation, ITransportHost& host);
    ~CCyUSBDriver() override;
    CCyUSBDriver(const CCyUSBDriver&) = delete;
    CCyUSBDriver& operator=(const CCyUSBDriver&) = delete;

    void Reconnect() override;
    void Send(std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length) override;
    bool IsConnected() override;
    bool IsReady() override;
    bool IsUpdatingFirmware() override;
    std::uint32_t GetTransferredBytes() override;
    void DispatchToDevice(const std::uint8_t* data, std::uint32_t length) override;

    /// Size of the buffers for received bytes; one more byte of room follows for the zero behind a full read.
    static constexpr std::uint32_t TransferLength = 65535;

private:
    friend class UsbCommandThread;
    friend class SimulationCommandThread;
    friend struct CCyUSBDriverTestAccess;

    /// Frames and queues. Throws std::bad_alloc, which leaves numbering and queue as they were.
    void Submit(bool idle, std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length);
    /// The same for senders that have nobody to tell.
    void SubmitOrDrop(bool idle, std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length);
    void SendIdlePacket();
    void NotifyState(bool connected);

    // IFirmwareTransport
    void SubmitFirmware(const std::uint8_t* data, std::uint32_t length) override;
    void ClearCommandQueue() override;
    void RegisterDeviceName(const std::wstring& name, std::int32_t device) override;

    void EndThreads();

    // Thread bodies.
    void USBCommandProcessThread();
    void SimulationCommandProcessThread();
    void USBReadWaitThread(CCyUSBEndPoint* in);
    void SimulationReadWaitThread(HANDLE pipe);
    void ReplyProcessThread();

    /// What the reply thread has to do next; of several the first counts.
    enum class ReplySlot { Stop, BlockQueued, TimedOut, Nothing };
    ReplySlot AwaitReply();
    void OnQuietReplySecond();
    /// Reads with `reader` until stopped, between two traces; shared by the read threads.
    template <class Reader>
    void RunReader(Reader& reader, const char* started, const char* ended);

    /// Queues a copy of received bytes for the reply thread. The name keeps its three p's.
    void ApppendToReplyProcessQueue(const std::uint8_t* data, std::uint32_t length);
    void HandleReplyBlock();
    void Deliver(const wire::Frame& frame);
    void CheckNumber(std::uint8_t received);
    bool SyncToFrame();

    // Shared by the two command threads, which call them.
    void StopReadThreads();
    void BeginNumbering();
    /// Starts the firmware download when that is what keeps the new connection from being ready.
    void StartDownloadIfNeeded();
    /// Traces a packet that is about to be written.
    void TraceOutgoing(const CSerialPortCommand& packet);
    /// Tells the packet's port that its write has begun.
    void ReportPacketCompleted(const CSerialPortCommand& packet);
    /// Counts bytes of a completed transfer. Any transport thread.
    void CountTransferred(std::uint32_t bytes) noexcept
    {
        m_nTransferredBytes.fetch_add(bytes, std::memory_order_relaxed);
    }
    /// After a failed transfer: ports create their pipes anew, the connect procedure runs.
    void DropConnection();

    ITransportHost& m_Host;

    win32::MirroredEvent m_hDisconnected; // set: not connected, run the connect procedure
    win32::MirroredEvent m_hStop;
    win32::Event m_hStopRead{win32::Event::Kind::ManualReset};
    std::atomic<bool> m_bTerminate{false};       // set by the command thread: no host program is left
    std::atomic<bool> m_bFirstReadFailed{false}; // set by the read thread of a connection that brought nothing

    CCommandQueue m_CommandQueue;                              // framed packets for the instrument
    CCommandQueue m_ReplyQueue{CCommandQueue::Waiting::Alone}; // received blocks

    // Held over the push on m_CommandQueue as well, so that numbers stand in the queue in ascending order.
    win32::CriticalSection m_Lock;
    std::uint8_t m_nNextPacketNumber GUARDED_BY(m_Lock) = 0;
    std::atomic<std::uint8_t> m_nLastPacketNumber{0}; // reply thread; zeroed by the command thread at a connect
    ReceiveBuffer m_ReplyBuffer;                      // reply thread; kept over reconnects
    std::atomic<std::uint32_t> m_nTransferredBytes{0};
    const bool m_bLimitQueue = false; // dormant: nothing sets it, and it stays that way
    FirmwareDownloader m_Firmware;
    const bool m_bSimulation;

    // Last, so that the threads end first. The read threads are started and joined by the command thread, the
    // second of them never runs over USB.
    win32::Thread m_hReadThread;
    win32::Thread m_hReadThread2;
    win32::Thread m_hReplyThread;
    win32::Thread m_hCommandThread;
};
