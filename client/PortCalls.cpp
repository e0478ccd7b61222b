// What a client's calls do.
#include "client/PortScopes.h"

namespace clientlib {

namespace {

/// A message was not written, because the router did not read.
constexpr Result NotRead{MORVANE_E_TIMEOUT, ERROR_SEM_TIMEOUT};

} // namespace

Result Port::Ended(const Call& call) const
{
    if (m_closing) {
        return {MORVANE_E_CLOSED, ERROR_SUCCESS};
    }
    return {call.epoch != m_epoch ? MORVANE_E_CANCELLED : MORVANE_OK, ERROR_SUCCESS};
}

// The initial reason is no answer to a call that does not wait.
Result Port::NotConnected() const
{
    return m_why.code != MORVANE_E_TIMEOUT ? m_why : Result{MORVANE_E_NO_PIPE, ERROR_SUCCESS};
}

Result Port::Wait(const Call& call)
{
    if (const Result ended = Ended(call); !ended.IsOk()) {
        return ended;
    }
    if (call.IsOver()) {
        return {MORVANE_E_TIMEOUT, ERROR_SUCCESS};
    }
    m_changed.Wait(m_lock, call.Left());
    return Ended(call);
}

Result Port::WaitForTurn(const Call& call)
{
    Result ended{MORVANE_OK, ERROR_SUCCESS};
    while (m_requesting && ended.IsOk()) {
        ended = Wait(call);
    }
    return ended;
}

Result Port::Refusal(const Call& call, View message)
{
    const auto longest = m_settings.Has(MORVANE_RAW) ? MORVANE_LONGEST_MESSAGE
                                                     : static_cast<std::size_t>(m_settings.registration.readSize);
    if (message.size() > longest) {
        return {MORVANE_E_TOO_LONG, ERROR_SUCCESS};
    }
    if (const Result ended = Ended(call); !ended.IsOk()) {
        return ended;
    }
    if (m_link == Link::Down) {
        return NotConnected();
    }
    return {m_step != Step::In ? MORVANE_E_OUT_OF_STEP : MORVANE_OK, ERROR_SUCCESS};
}

Result Port::Send(View message, std::uint32_t timeout)
{
    const win32::SectionScope scope(m_lock);
    const Call call(*this, timeout);
    if (m_settings.Has(MORVANE_QUEUE)) {
        return Enqueue(call, message);
    }
    if (const Result ended = WaitForTurn(call); !ended.IsOk()) {
        return ended;
    }
    return Write(call, message, false);
}

Result Port::Enqueue(const Call& call, View message)
{
    if (const Result refusal = Refusal(call, message); !refusal.IsOk()) {
        return refusal;
    }
    if (m_outbox.IsFull()) {
        return {MORVANE_E_QUEUE_FULL, ERROR_SUCCESS};
    }
    if (!EnsureSender()) {
        return {MORVANE_E_MEMORY, ERROR_SUCCESS};
    }
    m_outbox.Push(message);
    m_senderWake.WakeOne();
    return {};
}

Result Port::Flush(std::uint32_t timeout)
{
    const win32::SectionScope scope(m_lock);
    const Call call(*this, timeout);
    const FlushScope flush(*this);
    while (m_writing || m_outbox.HasUnread()) {
        if (m_link == Link::Down) {
            return NotConnected();
        }
        if (const Result ended = AwaitQueue(call); !ended.IsOk()) {
            return ended;
        }
    }
    return Ended(call);
}

Result Port::AwaitQueue(const Call& call)
{
    if (const Result before = Ended(call); !before.IsOk()) {
        return before;
    }
    if (!EnsureSender()) {
        return {MORVANE_E_MEMORY, ERROR_SUCCESS};
    }
    m_senderWake.WakeOne();
    const Result ended = Wait(call);
    return ended.code == MORVANE_E_TIMEOUT ? NotRead : ended;
}

Result Port::Write(const Call& call, View message, bool isRequest)
{
    for (;;) {
        if (const Result refusal = Refusal(call, message); !refusal.IsOk()) {
            return refusal;
        }
        if (!MustWaitToWrite()) {
            break;
        }
        if (const Result ended = AwaitQueue(call); !ended.IsOk()) {
            return ended;
        }
    }
    // What has come before a request is sent is not its reply.
    while (isRequest && SortNext()) {
    }
    while (isRequest && !m_inbox.expected.empty()) {
        SetAside(m_inbox.expected);
    }
    // The callback of the sorting left the lock.
    return MustWaitToWrite() ? Write(call, message, isRequest) : WriteNow(call, message);
}

Result Port::WriteNow(const Call& call, View message)
{
    if (const Result refusal = Refusal(call, message); !refusal.IsOk()) {
        return refusal;
    }
    ClientPipe::Outcome outcome = ClientPipe::Outcome::Broken;
    {
        const Flag writing(m_writing);
        const DWORD left = call.Left();
        const win32::SectionPause pause(m_lock);
        outcome = m_pipe.Write(message, ClientPipe::Timeout(left));
    }
    ResetInterrupt();
    WakeAll();
    if (m_outbox.HasWork()) {
        m_senderWake.WakeOne();
    }
    switch (outcome) {
    case ClientPipe::Outcome::Done:
        m_outbox.OnWritten();
        if (m_link == Link::Down) {
            m_events.AlsoUnanswered(); // the reader saw the end before this thread had the lock again
        }
        return {};
    case ClientPipe::Outcome::Broken: LoseConnection(m_pipe.WriteError()); return m_why;
    default: break;
    }
    ReopenAfterPart();
    const Result ended = Ended(call);
    return ended.IsOk() ? NotRead : ended;
}

Result Port::Request(View message, morvane_match match, void* context, Room room, std::uint32_t timeout)
{
    const win32::SectionScope scope(m_lock);
    const Call call(*this, timeout);
    if (const Result ended = WaitForTurn(call); !ended.IsOk()) {
        return ended;
    }
    const Turn turn(*this);
    const Result written = Write(call, message, true);
    return written.IsOk() ? AwaitReply(call, match, context, room) : written;
}

Result Port::AwaitReply(const Call& call, morvane_match match, void* context, Room room)
{
    const Receiver receiver(*this);
    const std::uint64_t connection = m_connection;
    for (;;) {
        if (TakeReply(match, context)) {
            if (!m_settings.Has(MORVANE_RAW)) {
                m_outbox.SetUnread(false); // of a raw port more may have been written after the request
            }
            return Give(m_inbox.expected, room);
        }
        Result ended = Ended(call);
        if (ended.code == MORVANE_E_CLOSED) {
            return ended;
        }
        if (m_connection != connection || m_link == Link::Down) {
            LeaveStep(); // the instrument may answer on the next connection
            return {MORVANE_E_LOST, m_events.LostBy()};
        }
        if (ended.IsOk() && call.IsOver()) {
            ended.code = MORVANE_E_TIMEOUT;
        }
        if (!ended.IsOk()) {
            LeaveStep();
            return ended;
        }
        WaitForMessage(call.Left());
    }
}

void Port::LeaveStep()
{
    if (!m_settings.Has(MORVANE_RAW) && m_step == Step::In) {
        m_step = Step::Out;
    }
}

bool Port::TakeReply(morvane_match match, void* context)
{
    while (SortNext()) {
    }
    while (!m_inbox.expected.empty()) {
        const Inbox::Message first = m_inbox.expected.front();
        if (match == nullptr) {
            return true;
        }
        const bool isReply = Accepts(match, context, first);
        // Another thread may have discarded it meanwhile.
        if (m_inbox.expected.empty() || m_inbox.expected.front() != first) {
            continue;
        }
        if (isReply) {
            return true;
        }
        SetAside(m_inbox.expected);
    }
    return false;
}

bool Port::Accepts(morvane_match match, void* context, const Inbox::Message& message)
{
    m_inCallback.push_back(::GetCurrentThreadId());
    struct Leaver
    {
        std::vector<DWORD>& inCallback;
        ~Leaver() { std::erase(inCallback, ::GetCurrentThreadId()); }
    } const leaver{m_inCallback};
    const win32::SectionPause pause(m_lock);
    return match(context, message->data(), static_cast<std::uint32_t>(message->size())) != 0;
}

bool Port::IsInCallback()
{
    const win32::SectionScope scope(m_lock);
    return std::ranges::find(m_inCallback, ::GetCurrentThreadId()) != m_inCallback.end();
}

// One thread at a time, so that the messages keep their order. False when there is nothing to do for this thread.
bool Port::SortNext()
{
    if (m_sorting || m_closing || m_inbox.fresh.empty()) {
        return false;
    }
    const Inbox::Message first = m_inbox.fresh.front();
    bool isUnsolicited = false;
    {
        const Flag sorting(m_sorting);
        isUnsolicited = Accepts(m_settings.unsolicited, m_settings.unsolicitedContext, first);
    }
    if (!m_inbox.fresh.empty() && m_inbox.fresh.front() == first) {
        isUnsolicited ? SetAside(m_inbox.fresh) : m_inbox.Expect(m_inbox.fresh);
    }
    OnSorted();
    return true;
}

/// Lets all threads look at the queues again.
void Port::OnSorted()
{
    if (m_receivers == 0) {
        m_workerWake.WakeOne(); // there may be space again
    } else if (m_reading) {
        InterruptReading(); // or a call that reads would not see what is its own
    }
    WakeAll();
}

void Port::SetAside(Inbox::Queue& from)
{
    if (const std::size_t dropped = m_inbox.SetAside(from); dropped != 0) {
        m_events.Dropped(dropped);
    }
    OnSorted();
}

void Port::WaitForMessage(DWORD milliseconds)
{
    // What another thread sorts may be what this one waits for.
    if (m_link == Link::Up && !m_reading && !m_sorting && !m_inbox.IsFull() && !m_reopening) {
        ReadOnce(milliseconds);
    } else {
        m_changed.Wait(m_lock, milliseconds);
    }
}

Result Port::Give(Inbox::Queue& queue, Room room)
{
    if (!Inbox::Take(queue, room)) {
        return {MORVANE_E_BUFFER, ERROR_SUCCESS};
    }
    UpdateReady();
    return {};
}

Result Port::Receive(Kind kind, Room room, std::uint32_t timeout)
{
    const win32::SectionScope scope(m_lock);
    const Call call(*this, timeout);
    const Receiver receiver(*this);
    Inbox::Queue& queue = kind == Kind::Expected ? m_inbox.expected : m_inbox.unsolicited;
    const std::uint64_t connection = m_connection;
    for (bool hasRead = false;; hasRead = true) {
        while (SortNext()) {
        }
        if (!queue.empty() && !(kind == Kind::Expected && m_requesting)) {
            return Give(queue, room);
        }
        if (const Result ended = Ended(call); !ended.IsOk()) {
            return ended;
        }
        if (m_link == Link::Down) {
            return NotConnected();
        }
        if (m_connection != connection) {
            // The connection broke and came back before this thread saw it.
            return {MORVANE_E_NO_PIPE, m_events.LostBy()};
        }
        if (hasRead && call.IsOver()) {
            return {MORVANE_E_TIMEOUT, ERROR_SUCCESS};
        }
        WaitForMessage(call.Left());
    }
}

Result Port::Resync(std::uint32_t quiet, std::uint32_t timeout)
{
    const win32::SectionScope scope(m_lock);
    const Call call(*this, timeout);
    if (const Result ended = WaitForTurn(call); !ended.IsOk()) {
        return ended;
    }
    const Turn turn(*this);
    const Receiver receiver(*this);
    auto quietSince = Clock::now();
    for (bool hasWaited = false;; hasWaited = true) {
        while (SortNext()) {
        }
        if (const Result ended = Ended(call); !ended.IsOk()) {
            return ended;
        }
        if (m_link == Link::Down) {
            return NotConnected();
        }
        if (!m_inbox.expected.empty() || m_sorting || m_reopening) {
            m_inbox.expected.clear();
            UpdateReady();
            quietSince = Clock::now();
        } else if (hasWaited && Clock::now() - quietSince >= std::chrono::milliseconds(quiet)) {
            m_step = Step::In;
            return {};
        }
        if (hasWaited && call.IsOver()) {
            return {MORVANE_E_TIMEOUT, ERROR_SUCCESS};
        }
        WaitForMessage(std::min<DWORD>(call.Left(), quiet));
    }
}

} // namespace clientlib
