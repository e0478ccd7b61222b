// A port's connection: the worker and the sender.
#include "client/PortScopes.h"

#include <algorithm>
#include <utility>

namespace clientlib {

namespace {

/// So long the worker leaves the reading to clients that have just read.
constexpr std::chrono::milliseconds ClientsRead{100};

/// A pipe that is not there is looked for so long before the registration is looked at again.
constexpr ClientPipe::Timeout OpenSlice{1000};

/// Between two tries to start the router.
constexpr DWORD StartPauseMs = 250;

/// Messages that are read at the end of a connection: an instrument may send without a pause.
constexpr int MostRest = 1000;

/// Between two cancels of a flush.
constexpr DWORD TimeBetweenCancelsMs = 10;

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
    const ClientPipe::Timeout slice = std::min(OpenSlice, ClientPipe::Timeout(m_settings.openTimeout));
    for (;;) {
        const bool registered = EnsureRegistered();
        const auto outcome = registered ? m_pipe.Open(slice) : ClientPipe::Outcome::Stopped;
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
    const bool isAttached = m_settings.Has(MORVANE_ATTACH);
    const auto outcome = isAttached ? Registration::Outcome{} : m_router.Renew(m_closed.Get());
    if (!outcome) {
        return false;
    }
    const win32::SectionScope scope(m_lock);
    OnRegistered(*outcome);
    if (!outcome->result.IsOk() && !m_closing) {
        m_workerWake.Wait(m_lock, StartPauseMs);
    }
    return outcome->result.IsOk();
}

void Port::OnRegistered(const Registration::Outcome& outcome)
{
    if (outcome.routerLost) {
        m_events.RouterGone();
    } else if (outcome.result.IsOk()) {
        m_events.InstrumentGone();
    }
    if (outcome.metEnding) {
        m_events.RouterEnding(outcome.result);
    }
    if (!outcome.result.IsOk()) {
        NotYet(outcome.result);
    } else if (m_why.code != MORVANE_E_HELD && m_why.code != MORVANE_E_ACCESS && m_why.code != MORVANE_E_NO_PIPE) {
        m_why = {MORVANE_E_NO_PIPE, ERROR_FILE_NOT_FOUND};
    }
    WakeAll();
}

void Port::OnConnected()
{
    ++m_connection;
    m_link = Link::Up;
    m_step = m_step == Step::InWhenReopened ? Step::In : m_step;
    m_outbox.OnConnected();
    m_events.Connected();
    m_senderWake.WakeOne();
    WakeAll();
}

void Port::NotYet(Result why)
{
    m_why = why;
    m_events.NotYet(why);
    WakeAll();
}

void Port::LoseConnection(DWORD error)
{
    if (m_link == Link::Down) {
        return;
    }
    m_link = Link::Down;
    m_why = {MORVANE_E_NO_PIPE, error};
    m_events.Lost(error, m_outbox.Unanswered(), static_cast<std::uint32_t>(m_outbox.Waiting()));
    m_outbox.Drop();
    m_workerWake.WakeOne();
    WakeAll();
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
    if (m_ready.IsWanted()) {
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
    const bool isReply = m_requesting;
    {
        const Flag reading(m_reading);
        const win32::SectionPause pause(m_lock);
        outcome = m_pipe.Read(bytes, ClientPipe::Timeout(milliseconds));
        // After a reply only the next request is expected, which the start of a read would hold up.
        if (outcome == ClientPipe::Outcome::Done && !isReply) {
            m_pipe.ReadAhead();
        }
    }
    ResetInterrupt();
    if (outcome == ClientPipe::Outcome::Done) {
        TakeIn(std::move(bytes));
    } else if (outcome == ClientPipe::Outcome::Broken) {
        LoseConnection(m_pipe.Error());
    }
    if (m_closing || m_reopening) {
        m_workerWake.WakeOne();
    }
    WakeAll();
}

void Port::TakeIn(Inbox::Bytes bytes)
{
    m_outbox.OnMessage();
    (m_settings.unsolicited != nullptr ? m_inbox.fresh : m_inbox.expected)
        .push_back(std::make_shared<const Inbox::Bytes>(std::move(bytes)));
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
    const bool mayBeUnread = m_link == Link::Up && m_outbox.HasUnread() && m_closing;
    const bool isLost = !m_closing && !m_reopening; // and not given up on request
    {
        const win32::SectionPause pause(m_lock);
        if (mayBeUnread) {
            // The router drops what it has not read when the port is released. Close limits the wait.
            m_pipe.Flush();
        }
        ReadRest(isLost);
        m_pipe.Close();
    }
    if (std::exchange(m_reopening, false)) {
        m_link = Link::Down;
        m_events.Reopening();
        m_inbox.DiscardExpected();
    }
    ResetInterrupt();
    WakeAll();
}

/// What had come when a connection was given up: the sender may have seen its end before the reader.
void Port::ReadRest(bool isKept)
{
    Inbox::Bytes bytes;
    for (int count = 0; count < MostRest; ++count) {
        if (m_pipe.Read(bytes, ClientPipe::Timeout(0)) != ClientPipe::Outcome::Done) {
            return;
        }
        if (isKept) {
            const win32::SectionScope scope(m_lock);
            TakeIn(std::move(bytes));
        }
    }
}

bool Port::EnsureSender()
{
    return m_sender.IsHeld() || m_sender.Start([this] { SendQueued(); });
}

void Port::SendQueued()
{
    const win32::SectionScope scope(m_lock);
    while (!m_closing) {
        if (m_link == Link::Up && !m_writing && !m_reopening && m_outbox.HasWork()) {
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
    const bool onlyFlush = m_outbox.MustFlush();
    const bool flushes = onlyFlush || m_outbox.IsFlushedAtOnce();
    const std::uint64_t connection = m_connection;
    const Outbox::Bytes message = onlyFlush ? Outbox::Bytes() : m_outbox.Next();
    ClientPipe::Outcome outcome = ClientPipe::Outcome::Done;
    ClientPipe::Outcome flushed = ClientPipe::Outcome::Stopped;
    {
        const Flag writing(m_writing);
        const Flag sending(m_sending);
        const win32::SectionPause pause(m_lock);
        if (!onlyFlush) {
            outcome = m_pipe.Write(message, ClientPipe::Timeout(INFINITE));
        }
        if (flushes && outcome == ClientPipe::Outcome::Done) {
            flushed = m_pipe.Flush();
        }
    }
    ResetInterrupt();
    if (outcome == ClientPipe::Outcome::Broken || flushed == ClientPipe::Outcome::Broken) {
        LoseConnection(m_pipe.WriteError());
    } else if (outcome != ClientPipe::Outcome::Done) {
        ReopenAfterPart();
    } else if (m_connection == connection) {
        m_outbox.SetUnread(flushed != ClientPipe::Outcome::Done);
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
    m_step = Step::InWhenReopened;
    if (m_link == Link::Up && !m_closing) {
        m_reopening = true;
        Interrupt();
        m_workerWake.WakeOne();
    }
}

void Port::Interrupt()
{
    m_stopWriting.Set();
    InterruptReading();
}

void Port::InterruptReading()
{
    m_stopReading.Set();
    m_changed.WakeAll();
}

/// The thread that an interruption concerned takes it back.
void Port::ResetInterrupt()
{
    if (m_closing || m_reopening) {
        return;
    }
    if (!m_reading) {
        m_stopReading.Reset();
    }
    if (!m_writing) {
        m_stopWriting.Reset();
    }
}

void Port::WakeAll()
{
    m_changed.WakeAll();
    UpdateReady();
}

void Port::UpdateReady()
{
    m_ready.Update(!(m_inbox.IsEmpty() && m_events.IsEmpty()));
}

} // namespace clientlib
