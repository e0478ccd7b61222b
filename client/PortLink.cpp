// A port's connection: the worker and the sender.
#include "client/PortScopes.h"

#include "win32/WaitSet.h"

#include <array>
#include <utility>

namespace clientlib {

namespace {

/// So long the worker leaves the reading to clients that have just read.
constexpr std::chrono::milliseconds ClientsRead{100};

/// A pipe that is not there is looked for so long before the registration is looked at again.
constexpr ClientPipe::Timeout OpenSlice{1000};

/// Between two tries to start the router.
constexpr DWORD StartPauseMs = 250;

/// Between two cancels of a flush.
constexpr DWORD TimeBetweenCancelsMs = 10;

constexpr std::size_t MostEvents = 256;

constexpr DWORD LongestReleaseMs = 10'000;

struct RenewJob
{
    win32::Event done{win32::Event::Kind::ManualReset};
    Registration::Outcome outcome;
};

} // namespace

void Port::Work()
{
    for (;;) {
        try {
            while (Connect()) {
                Serve();
                Disconnect();
            }
            return;
        } catch (...) {
            // Without memory for a message the connection is given up: the client sees that something is missing.
            OnWorkerFault();
        }
    }
}

void Port::OnWorkerFault()
{
    {
        const win32::SectionScope scope(m_lock);
        LoseConnection(ERROR_OUTOFMEMORY);
    }
    Disconnect();
    m_closed.Wait(StartPauseMs);
}

bool Port::Connect()
{
    for (;;) {
        const bool registered = EnsureRegistered();
        const auto outcome = registered ? m_pipe.Open(OpenSlice) : ClientPipe::Outcome::Stopped;
        const win32::SectionScope scope(m_lock);
        ResetInterrupt();
        if (m_closing) {
            break;
        }
        switch (outcome) {
        case ClientPipe::Outcome::Done: OnConnected(); return true;
        case ClientPipe::Outcome::Busy: NotYet({MORVANE_E_HELD, m_pipe.Error()}); break;
        case ClientPipe::Outcome::Absent:
            NotYet({m_pipe.Error() == ERROR_ACCESS_DENIED ? MORVANE_E_ACCESS : MORVANE_E_NO_PIPE, m_pipe.Error()});
            break;
        default: break;
        }
    }
    m_pipe.Close();
    return false;
}

bool Port::EnsureRegistered()
{
    if ((m_settings.flags & MORVANE_ATTACH) != 0) {
        const win32::SectionScope scope(m_lock);
        OnRegistered({});
        return true;
    }
    const auto job = std::make_shared<RenewJob>();
    const auto work = [registration = m_registration, job] {
        job->outcome = registration->Renew();
        job->done.Set();
    };
    if (m_com.Post(work)) {
        // The job of a port that closes goes on without it.
        const std::array<HANDLE, 2> either = {m_closed.Get(), job->done.Get()};
        if (::WaitForMultipleObjects(2, either.data(), FALSE, INFINITE) != WAIT_OBJECT_0 + 1) {
            return false;
        }
    } else {
        job->outcome.result.code = MORVANE_E_MEMORY;
    }
    const win32::SectionScope scope(m_lock);
    OnRegistered(job->outcome);
    if (!job->outcome.result.IsOk() && !m_closing) {
        m_workerWake.Wait(m_lock, StartPauseMs);
    }
    return job->outcome.result.IsOk();
}

void Port::OnRegistered(const Registration::Outcome& outcome)
{
    if (outcome.routerLost) {
        if (!m_loss && m_gone != Gone::Router) {
            m_loss.emplace();
        }
        ReportLoss(Gone::Router);
    } else if (outcome.result.IsOk()) {
        ReportLoss(Gone::Instrument);
    }
    if (outcome.metEnding && !std::exchange(m_endingReported, true)) {
        Report(MORVANE_EVENT_ROUTER_ENDING, outcome.result);
    }
    if (!outcome.result.IsOk()) {
        NotYet(outcome.result);
    } else if (m_why.code != MORVANE_E_HELD && m_why.code != MORVANE_E_ACCESS) {
        m_why = {MORVANE_E_NO_PIPE, ERROR_FILE_NOT_FOUND};
    }
}

void Port::OnConnected()
{
    static constexpr std::array<std::int32_t, 4> Events = {MORVANE_EVENT_CONNECTED, MORVANE_EVENT_INSTRUMENT_BACK,
                                                           MORVANE_EVENT_ROUTER_BACK, MORVANE_EVENT_REOPENED};
    ++m_connection;
    m_link = Link::Up;
    m_outOfStep = false;
    m_untaken = false;
    m_unanswered = 0;
    m_endingReported = false;
    m_reported = MORVANE_OK;
    Report(Events[static_cast<std::size_t>(m_gone)]);
    m_gone = Gone::Instrument;
    m_senderWake.WakeOne();
}

void Port::NotYet(Result why)
{
    m_why = why;
    if (std::exchange(m_reported, why.code) != why.code) {
        Report(MORVANE_EVENT_NOT_YET, why);
    }
}

void Port::Report(std::int32_t kind, Result why)
{
    if (m_events.size() >= MostEvents) {
        m_events.pop_front();
    }
    morvane_event event{};
    event.kind = kind;
    event.error = why.code;
    event.windows_error = why.windowsError;
    m_events.push_back(event);
    WakeAll();
}

void Port::LoseConnection(DWORD error)
{
    if (m_link == Link::Down) {
        return;
    }
    m_link = Link::Down;
    m_why = {MORVANE_E_NO_PIPE, error};
    m_loss.emplace();
    m_loss->windows_error = error;
    m_loss->unanswered = m_unanswered;
    m_loss->unsent = static_cast<std::uint32_t>(m_queue.size());
    // Nothing is sent later than the client meant it.
    m_queue.clear();
    m_workerWake.WakeOne();
    WakeAll();
}

void Port::ReportLoss(Gone gone)
{
    if (!m_loss) {
        return;
    }
    m_gone = gone;
    m_reported = gone == Gone::Router ? MORVANE_E_ROUTER_GONE : MORVANE_E_NO_PIPE;
    Report(gone == Gone::Router ? MORVANE_EVENT_ROUTER_GONE : MORVANE_EVENT_INSTRUMENT_GONE);
    morvane_event& event = m_events.back();
    event.windows_error = m_loss->windows_error;
    event.unanswered = m_loss->unanswered;
    event.unsent = m_loss->unsent;
    m_loss.reset();
}

void Port::Serve()
{
    const win32::SectionScope scope(m_lock);
    while (m_link == Link::Up && !m_closing && !m_reopening) {
        if (const DWORD pause = ReadingPause(); pause != 0) {
            m_workerAsleep = pause == INFINITE;
            m_workerWake.Wait(m_lock, pause);
            m_workerAsleep = false;
        } else {
            ReadOnce(INFINITE);
        }
    }
}

/// 0 when the worker is to read.
DWORD Port::ReadingPause()
{
    if (m_reading || m_receivers != 0 || m_inbox.IsFull()) {
        return INFINITE;
    }
    if (m_wantsReady) {
        return 0;
    }
    const auto since = Clock::now() - m_lastReceiver;
    return since >= ClientsRead
             ? 0
             : static_cast<DWORD>(std::chrono::ceil<std::chrono::milliseconds>(ClientsRead - since).count());
}

void Port::ReadOnce(DWORD milliseconds)
{
    Inbox::Bytes bytes;
    ClientPipe::Outcome outcome = ClientPipe::Outcome::Broken;
    {
        const Flag reading(m_reading);
        const win32::SectionPause pause(m_lock);
        outcome = m_pipe.Read(bytes, ClientPipe::Timeout(milliseconds));
    }
    ResetInterrupt();
    if (outcome == ClientPipe::Outcome::Done) {
        ++m_received;
        m_unanswered = 0;
        (m_settings.unsolicited != nullptr ? m_inbox.fresh : m_inbox.expected)
            .push_back(std::make_shared<const Inbox::Bytes>(std::move(bytes)));
    } else if (outcome == ClientPipe::Outcome::Broken) {
        LoseConnection(m_pipe.Error());
    }
    if (m_closing || m_reopening) {
        m_workerWake.WakeOne();
    }
    WakeAll();
}

void Port::Disconnect()
{
    const win32::SectionScope scope(m_lock);
    while (m_reading || m_writing) {
        // Only a flush outlasts the interruption or the break.
        if (m_writing && m_sender.IsHeld() && !m_closing) {
            ::CancelSynchronousIo(m_sender.Get());
        }
        m_workerWake.Wait(m_lock, TimeBetweenCancelsMs);
    }
    const bool mayBeUnread = m_link == Link::Up && m_untaken && m_closing;
    {
        const win32::SectionPause pause(m_lock);
        if (mayBeUnread) {
            // The router drops what it has not read when the port is released. Close limits the wait.
            m_pipe.Flush();
        }
        // Limited: an instrument may send without a pause.
        std::vector<std::uint8_t> unread;
        for (std::uint32_t count = 0; count < m_settings.queueLimit; ++count) {
            if (m_pipe.Read(unread, ClientPipe::Timeout(0)) != ClientPipe::Outcome::Done) {
                break;
            }
        }
        m_pipe.Close();
    }
    if (std::exchange(m_reopening, false)) {
        m_link = Link::Down;
        m_gone = Gone::Reopened;
        m_inbox.DiscardExpected();
    }
    ResetInterrupt();
    WakeAll();
}

bool Port::EnsureSender()
{
    return m_sender.IsHeld() || m_sender.Start([this] { SendQueued(); });
}

void Port::SendQueued()
{
    const win32::SectionScope scope(m_lock);
    while (!m_closing) {
        if (m_link == Link::Up && !m_writing && !m_reopening && (m_untaken || !m_queue.empty())) {
            SendNext();
        } else {
            m_senderWake.Wait(m_lock, INFINITE);
        }
    }
}

/// Writes the first message of the queue, unless the router may not have read the one before, and waits until the
/// router has read it.
void Port::SendNext()
{
    const bool onlyFlush = m_untaken;
    const std::uint64_t connection = m_connection;
    std::vector<std::uint8_t> message;
    if (!onlyFlush) {
        message = std::move(m_queue.front());
        m_queue.pop_front();
        ++m_unanswered;
    }
    bool taken = false;
    ClientPipe::Outcome outcome = ClientPipe::Outcome::Done;
    {
        const Flag writing(m_writing);
        const win32::SectionPause pause(m_lock);
        if (!onlyFlush) {
            outcome = m_pipe.Write(message, ClientPipe::Timeout(INFINITE));
        }
        taken = outcome == ClientPipe::Outcome::Done && m_pipe.Flush();
    }
    ResetInterrupt();
    if (outcome == ClientPipe::Outcome::Broken) {
        LoseConnection(m_pipe.WriteError());
    } else if (outcome != ClientPipe::Outcome::Done) {
        ReopenAfterPart();
    } else if (m_connection == connection) {
        m_untaken = !taken;
    }
    if (m_closing || m_reopening || m_link == Link::Down) {
        m_workerWake.WakeOne();
    }
    WakeAll();
}

/// The router may have read a part of a message whose writing was cancelled: what is written next would continue
/// it.
void Port::ReopenAfterPart()
{
    m_outOfStep = true;
    if (m_link == Link::Up && !m_closing) {
        m_reopening = true;
        Interrupt();
        m_workerWake.WakeOne();
    }
}

void Port::Interrupt()
{
    m_interrupted = true;
    m_interrupt.Set();
    m_changed.WakeAll();
}

/// The last one that an interruption concerns takes it back.
void Port::ResetInterrupt()
{
    if (m_interrupted && !m_reading && !m_writing && !m_closing && !m_reopening) {
        m_interrupted = false;
        m_interrupt.Reset();
    }
}

void Port::WakeAll()
{
    m_changed.WakeAll();
    UpdateReady();
}

void Port::UpdateReady()
{
    const bool isReady = m_wantsReady && !(m_inbox.IsEmpty() && m_events.empty());
    if (std::exchange(m_isReady, isReady) != isReady) {
        isReady ? m_ready.Set() : m_ready.Reset();
    }
}

void Port::ReleaseRouter() noexcept
{
    if ((m_settings.flags & MORVANE_ATTACH) != 0) {
        return;
    }
    try {
        const auto done = std::make_shared<win32::Event>(win32::Event::Kind::ManualReset);
        const auto work = [registration = m_registration, done] {
            registration->Release();
            done->Set();
        };
        // A router that hangs must not hold its clients; the release goes on in the background.
        if (m_com.Post(work)) {
            done->Wait(LongestReleaseMs);
        }
    } catch (...) {
        // Without memory for the job the router is released with the process.
    }
}

} // namespace clientlib
