#include "instrument/Endpoint.h"

#include "console/Console.h"

#include <algorithm>
#include <array>
#include <utility>

namespace instrument {

Endpoint::Endpoint(Engine& engine, const Observer& observer, HANDLE stop, std::vector<Awaited> awaited)
    : m_engine(engine), m_stop(stop), m_observer(observer), m_awaited(std::move(awaited))
{
}

Endpoint::End Endpoint::Run(const Limits& limits)
{
    const Time end =
        limits.milliseconds != 0 ? console::Now() + std::chrono::milliseconds(limits.milliseconds) : Time::max();
    m_end.reset();
    Begin();
    if (!m_end) {
        m_observer.served();
    }
    while (!m_end) {
        Await(WaitTime(end));
        PlayWhatIsDue();
        m_observer.pass();
        CheckLimits(limits, end);
    }
    Leave();
    return *m_end;
}

void Endpoint::Await(DWORD milliseconds)
{
    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> events{m_stop};
    std::array<const Awaited*, MAXIMUM_WAIT_OBJECTS> pending{};
    DWORD count = 1;
    DWORD completed = MAXIMUM_WAIT_OBJECTS; // the first that was done at once, for which no event is promised
    for (const Awaited& each : m_awaited) {
        if (each.operation->IsPending()) {
            completed = each.operation->CompletedAtStart() ? std::min(completed, count) : completed;
            pending[count] = &each;
            events[count++] = each.operation->EventHandle();
        }
    }
    const DWORD signalled =
        ::WaitForMultipleObjects(count, events.data(), FALSE, completed < count ? 0 : milliseconds);
    if (signalled == WAIT_OBJECT_0) {
        FinishWith(End::Stopped);
    } else if (const DWORD first = std::min(signalled, completed); first < count) {
        pending[first]->onCompleted();
    }
}

std::optional<DWORD> Endpoint::ResultOf(win32::OverlappedOperation& operation, HANDLE file)
{
    DWORD length = 0;
    if (operation.Finish(file, length)) {
        return length;
    }
    if (::GetLastError() != ERROR_IO_INCOMPLETE) {
        OnFailure(operation);
    }
    return std::nullopt;
}

DWORD Endpoint::WaitTime(Time end) const
{
    // What is due while a write is pending waits for the end of the write.
    const Time due = std::min(end, IsWriting() ? Time::max() : m_engine.NextDue().value_or(Time::max()));
    if (due == Time::max()) {
        return INFINITE;
    }
    // Rounded up: waking too early would only mean to wait once more.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - console::Now()).count();
    return static_cast<DWORD>(std::clamp<std::int64_t>(left, 0, 60'000));
}

void Endpoint::CheckLimits(const Limits& limits, Time end)
{
    if (m_end) {
        return;
    }
    const bool allWritten = !m_engine.HasUnsent() && !IsWriting();
    if (console::Now() >= end) {
        m_end = End::TimeOver;
    } else if (limits.requests != 0 && allWritten &&
               std::cmp_greater_equal(m_engine.Counted().requests, limits.requests))
    {
        m_end = End::EnoughRequests;
    }
}

void Endpoint::PlayWhatIsDue()
{
    for (int step = 0; step < Burst && !m_end && !IsWriting(); ++step) {
        switch (m_engine.Take(console::Now(), m_writing)) {
        case Engine::Order::Nothing: return;
        case Engine::Order::Write: Write(m_writing); break;
        case Engine::Order::Vanish:
            Vanish();
            m_observer.Say("instrument vanished");
            break;
        case Engine::Order::Return:
            m_observer.Say("instrument back");
            Return();
            break;
        }
    }
}

void Endpoint::FinishWith(End end, std::string failure)
{
    m_end = end;
    m_failure = std::move(failure);
}

void Endpoint::OnConnected()
{
    m_engine.Connected(console::Now());
    m_observer.Say("router connected");
}

void Endpoint::OnRouterGone(const std::string& reason)
{
    m_engine.Disconnected();
    m_observer.Say(reason.empty() ? "router gone" : "router gone (" + reason + ")");
}

} // namespace instrument
