// The worker of one port: what PipeProcessThread does, and the state it keeps on its own stack.
#pragma once

#include "ports/CCDevicePortPipe.h"
#include "win32/OverlappedOperation.h"
#include "win32/OwnUserSecurity.h"
#include "win32/WaitSet.h"

#include <memory>
#include <string>

/// Lives on the port's worker thread and is used by it alone.
class PipeWorker
{
public:
    explicit PipeWorker(CCDevicePortPipe& port);

    /// Serves the port until it is stopped.
    void Run();

private:
    /// In wait order: of several signalled objects the first counts.
    enum class Slot : DWORD {
        Stop,
        Recreate,
        Connected,
        Written,
        ReadEnabled,
        ReadDone,
        PacketQueued,
        TimedOut = WAIT_TIMEOUT,
        Failed = WAIT_FAILED
    };

    using Waits = win32::WaitSet<Slot, 7>;

    Slot Wait();
    DWORD TimeLeftForWrite() const; // ms; 0 when none is pending
    win32::Expectation ExpectReadEnabled();
    win32::Expectation ExpectRead() const;
    void Handle(Slot slot);
    void OnQuiet();
    void OnStop();
    void OnRecreate();
    void OnConnected();
    void OnWritten();
    void OnReadEnabled();
    void OnReadDone();
    void OnPacketQueued();

    void CreatePipe();
    void ClosePipe();
    void StartRead();
    void HandOver(DWORD length);
    void HandOverLastMessage();
    void WriteNext();

    CCDevicePortPipe& m_port;
    const std::string m_fullName;
    const std::string m_shownName;                // the same for trace texts
    std::unique_ptr<std::uint8_t[]> m_readBuffer; // of the port's read buffer size; null when that is 0 or less
    std::unique_ptr<CSerialPortCommand> m_lastWritten;        // its bytes may still be read by the write operation
    const std::unique_ptr<win32::OwnUserSecurity> m_security; // null: the pipe has the default security
    win32::FileHandle m_pipe;

    // Declared after all that they write to or read from: each cancels and waits when it goes.
    win32::OverlappedOperation m_connect;
    win32::OverlappedOperation m_read;
    win32::OverlappedOperation m_write;

    bool m_running = true;
    bool m_reading = false;
    bool m_writeComplete = false;
    int m_creations = 0;
    int m_idlePasses = 0;
    DWORD m_handedOver = 0;       // length of the message that is handed over again; 0 when there is none
    ULONGLONG m_writingSince = 0; // GetTickCount64 of the last write's start

    const Waits m_waits;
};
