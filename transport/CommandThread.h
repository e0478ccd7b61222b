// The command thread: connects, does all writes, watches the host programs.
#pragma once

#include "firmware/FirmwareDownloader.h"
#include "transport/CCommunicationDriver.h"
#include "transport/Connection.h"
#include "transport/Link.h"
#include "transport/Outgoing.h"
#include "transport/Replies.h"
#include "win32/TimerResolution.h"
#include "win32/WaitSet.h"

/// The parts of the transport that the command thread works with, borrowed.
struct CommandParts
{
    CCommunicationDriver& driver;
    Connection& connection;
    Outgoing& outgoing;
    Replies& replies;
    FirmwareDownloader& firmware;
    IHostWatch& watch;
    ILink& link;
};

/// What the command thread does, and its state; lives on that thread and is used by it alone.
class CommandThread
{
public:
    /// Throws std::bad_alloc also when an event is missing: every wait would fail.
    explicit CommandThread(const CommandParts& parts);

    /// Runs until the transport stops or no host program is left.
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

    Slot Wait() const;
    void Handle(Slot slot);
    void OnStop();
    void OnDisconnected();
    void OnOpened();
    void OnWriteDone();
    void OnCommandQueued();
    void OnQuietSecond();

    void OnBusy();
    void WriteNext();
    /// Counts a pass over a write that blocks others; whether it is one to report.
    bool IsReportDue(int& passes) const noexcept;
    bool HostIsGone() const;

    const CommandParts m_parts;
    Connection& m_connection; // of m_parts, as the next three
    ILink& m_link;
    CCommandQueue& m_queue;
    const ILink::Traits& m_traits;
    win32::TimerResolution m_timerResolution; // raised only while writes are aborted by time

    bool m_running = true;
    int m_connectAttempts = 0;
    int m_busyPasses = 0;
    int m_idlePasses = 0;
    int m_totalAborted = 0;

    const win32::WaitSet<Slot, 5> m_waits;
};
