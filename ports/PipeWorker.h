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
    Slot KnownSlot(bool readEnabled, bool hearsRead) const;
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
    void WriteNext();
    void ReadOn(bool submitted);
    bool WriteHasBegun();

    CCDevicePortPipe& m_port;
    const std::string m_fullName;
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
    bool m_awaitingWriteBegin = false; // of the last message's packet; until then the next message is not handled
    ULONGLONG m_awaitingSince = 0;     // GetTickCount64, meaningful while awaiting
    ULONGLONG m_writingSince = 0;      // of the last write's start

    const Waits m_waits;
};
