// The command thread of simulation mode: one pipe to the simulator, written and read by this thread.
#pragma once

#include "transport/CCyUSBDriver.h"
#include "win32/OverlappedOperation.h"
#include "win32/WaitSet.h"

#include <array>
#include <memory>

/// What SimulationCommandProcessThread does, and its state; lives on that thread and is used by it alone.
class SimulationCommandThread
{
public:
    /// Throws std::bad_alloc also when there is no event for the pipe: every wait would fail.
    explicit SimulationCommandThread(CCyUSBDriver& driver);

    /// Runs until the driver stops. There is no host watch in simulation mode.
    void Run();

private:
    /// In wait order: of several signalled objects the first counts.
    enum class Slot : DWORD {
        Stop,
        Disconnected,
        ReadDone,
        WriteDone,
        CommandQueued,
        TimedOut = WAIT_TIMEOUT,
        Failed = WAIT_FAILED
    };

    using Waits = win32::WaitSet<Slot, 5>;

    Slot Wait() const;
    void Handle(Slot slot);
    void OnStop();
    void OnDisconnected();
    void OnReadDone();
    void OnWriteDone();
    void OnCommandQueued();
    void OnQuietSecond();

    void OnOpened();
    void OnBusy();
    void WriteNext();
    void StartRead();
    void ClosePipe();

    CCyUSBDriver& m_driver;
    std::unique_ptr<std::array<std::uint8_t, CCyUSBDriver::TransferLength>> m_readBuffer;
    std::unique_ptr<CSerialPortCommand>
        m_lastWritten; // kept until the next is popped: the write may still read it
    win32::FileHandle m_pipe;

    // Declared after all that they write to or read from: each cancels and waits when it goes.
    win32::OverlappedOperation m_write;
    win32::OverlappedOperation m_read;

    bool m_running = true;
    bool m_writeInFlight = false;
    int m_connectAttempts = 0;
    int m_busyPasses = 0;
    int m_idlePasses = 0;
    const int m_totalAborted = 0; // this thread never aborts; the traces print it all the same

    const Waits m_waits;
};
