// One port of a client of the library.
#pragma once

#include "client/ClientPipe.h"
#include "client/Inbox.h"
#include "client/Interruption.h"
#include "client/Outbox.h"
#include "client/PortEvents.h"
#include "client/ReadySignal.h"
#include "client/RouterHold.h"
#include "client/Settings.h"
#include "win32/CriticalSection.h"
#include "win32/Event.h"
#include "win32/Thread.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <vector>

namespace clientlib {

/// Any thread may call any member. After Close every call returns MORVANE_E_CLOSED. Two threads serve the port:
/// the worker connects and reads, the sender (started when it is needed) flushes and writes what is queued. While
/// a client's thread waits for a message it reads itself, which saves a wake-up per message; the worker reads
/// again when no client has done so for a while.
class Port
{
public:
    using View = std::span<const std::uint8_t>;
    using Room = Inbox::Room;

    Port(Settings settings, ComThread& com);
    ~Port() { Close(); }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    /// Starts the worker and waits until the port is connected (not with MORVANE_BACKGROUND).
    Result Open();
    void Close() noexcept;
    /// Whether the calling thread is in a callback of this port.
    bool IsInCallback();

    enum class Kind { Expected, Unsolicited };
    Result Send(View message, std::uint32_t timeout);
    Result Flush(std::uint32_t timeout);
    Result Receive(Kind kind, Room room, std::uint32_t timeout);
    Result Request(View message, morvane_match match, void* context, Room room, std::uint32_t timeout);
    Result Resync(std::uint32_t quiet, std::uint32_t timeout);
    Result Reopen(std::uint32_t timeout);
    Result WaitReady(std::uint32_t timeout);
    Result Cancel();
    /// `event.size` is left as it is.
    Result NextEvent(morvane_event& event, std::uint32_t timeout);
    Result WaitHandle(HANDLE& handle);

private:
    class Call;
    class Receiver;
    class Flag;
    class FlushScope;
    class Turn;
    using Clock = std::chrono::steady_clock;
    enum class Link { Down, Up };
    enum class Step { In, Out, InWhenReopened }; // Out: the reply to an earlier request may still come

    // Calls; PortCalls.cpp.
    Result Refusal(const Call& call, View message) REQUIRES(m_lock);
    Result Ended(const Call& call) const REQUIRES(m_lock);
    Result NotConnected() const REQUIRES(m_lock);
    Result Wait(const Call& call) REQUIRES(m_lock);
    /// Until no request of another thread waits for its reply.
    Result WaitForTurn(const Call& call) REQUIRES(m_lock);
    Result Enqueue(const Call& call, View message) REQUIRES(m_lock);
    Result Write(const Call& call, View message, bool isRequest) REQUIRES(m_lock);
    Result AwaitQueue(const Call& call) REQUIRES(m_lock);
    Result WriteNow(const Call& call, View message) REQUIRES(m_lock);
    bool MustWaitToWrite() REQUIRES(m_lock) { return m_writing || m_outbox.MustWait(); }
    void LeaveStep() REQUIRES(m_lock);
    Result AwaitReply(const Call& call, morvane_match match, void* context, Room room) REQUIRES(m_lock);
    bool TakeReply(morvane_match match, void* context) REQUIRES(m_lock);
    Result Give(Inbox::Queue& queue, Room room) REQUIRES(m_lock);
    void WaitForMessage(DWORD milliseconds) REQUIRES(m_lock);
    bool Accepts(morvane_match match, void* context, const Inbox::Message& message) REQUIRES(m_lock);
    bool SortNext() REQUIRES(m_lock);
    void OnSorted() REQUIRES(m_lock);
    void SetAside(Inbox::Queue& from) REQUIRES(m_lock);

    // The connection; PortLink.cpp.
    void Work();
    void OnWorkerFault();
    bool Connect();
    bool EnsureRegistered();
    void OnRegistered(const Registration::Outcome& outcome) REQUIRES(m_lock);
    void OnConnected() REQUIRES(m_lock);
    void Serve();
    void Disconnect();
    void SendQueued();
    void SendNext() REQUIRES(m_lock);
    bool EnsureSender() REQUIRES(m_lock);
    DWORD ReadingPause() REQUIRES(m_lock);
    void ReadOnce(DWORD milliseconds) REQUIRES(m_lock);
    void TakeIn(Inbox::Bytes bytes) REQUIRES(m_lock);
    void ReadRest(bool isKept);
    void LoseConnection(DWORD error) REQUIRES(m_lock);
    void NotYet(Result why) REQUIRES(m_lock);
    void ReopenAfterPart() REQUIRES(m_lock);
    void Interrupt() REQUIRES(m_lock);
    void InterruptReading() REQUIRES(m_lock);
    void ResetInterrupt() REQUIRES(m_lock);
    void WakeAll() REQUIRES(m_lock);
    void UpdateReady() REQUIRES(m_lock);

    const Settings m_settings;
    RouterHold m_router; // the worker's, and Close's after its end

    win32::CriticalSection m_lock;
    win32::ConditionVariable m_changed;    // anything that a call may wait for
    win32::ConditionVariable m_workerWake; // of the worker alone, so that a message does not wake it
    win32::ConditionVariable m_senderWake;
    const win32::Event m_closed{win32::Event::Kind::ManualReset}; // set with m_closing
    Interruption m_stopReading GUARDED_BY(m_lock);                // or opening
    Interruption m_stopWriting GUARDED_BY(m_lock);

    Link m_link GUARDED_BY(m_lock) = Link::Down;
    Result m_why GUARDED_BY(m_lock){MORVANE_E_TIMEOUT}; // what a call gets while the link is down
    std::uint64_t m_connection GUARDED_BY(m_lock) = 0;  // counts connections
    std::uint64_t m_epoch GUARDED_BY(m_lock) = 0;       // counts cancellations
    std::uint32_t m_calls GUARDED_BY(m_lock) = 0;
    std::uint32_t m_receivers GUARDED_BY(m_lock) = 0; // calls that read
    Clock::time_point m_lastReceiver GUARDED_BY(m_lock);
    bool m_closing GUARDED_BY(m_lock) = false;
    bool m_reopening GUARDED_BY(m_lock) = false;
    bool m_workerAsleep GUARDED_BY(m_lock) = false;
    Step m_step GUARDED_BY(m_lock) = Step::In;

    // Roles; each is one thread's at a time, which leaves the lock while it plays it.
    bool m_reading GUARDED_BY(m_lock) = false;
    bool m_writing GUARDED_BY(m_lock) = false;
    bool m_sending GUARDED_BY(m_lock) = false; // m_writing is the sender's
    bool m_sorting GUARDED_BY(m_lock) = false;
    bool m_requesting GUARDED_BY(m_lock) = false;

    Inbox m_inbox GUARDED_BY(m_lock);
    Outbox m_outbox GUARDED_BY(m_lock);
    PortEvents m_events GUARDED_BY(m_lock);
    ReadySignal m_ready GUARDED_BY(m_lock);
    std::vector<DWORD> m_inCallback GUARDED_BY(m_lock); // ids of threads

    ClientPipe m_pipe; // Open and Close: the worker's; reading and writing: of the roles
    win32::Thread m_worker;
    win32::Thread m_sender GUARDED_BY(m_lock);
};

} // namespace clientlib
