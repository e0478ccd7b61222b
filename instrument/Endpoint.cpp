#include "instrument/Endpoint.h"

#include "console/Console.h"

#include <algorithm>
#include <array>
#include <utility>

namespace instrument {

Endpoint::End Endpoint::Run(const Limits& limits, const std::function<void()>& served,
                            const std::function<void()>& pass)
{
    const Time end =
        limits.milliseconds != 0 ? console::Now() + std::chrono::milliseconds(limits.milliseconds) : Time::max();
    Begin();
    if (!m_end) {
        served();
    }
    while (!m_end) {
        Await(WaitTime(end));
        PlayWhatIsDue();
        pass();
        if (!m_end) {
            m_end = LimitReached(limits, end);
        }
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

void Endpoint::TakeReads()
{
    for (int step = 0; step < Burst && m_read.IsPending(); ++step) {
        if (const auto length = ResultOf(m_read)) {
            OnRead(*length);
        } else {
            return;
        }
    }
}

std::optional<DWORD> Endpoint::ResultOf(win32::OverlappedOperation& operation)
{
    DWORD length = 0;
    if (operation.Finish(m_file.Get(), length)) {
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
    const Time due = std::min(end, m_write.IsPending() ? Time::max() : m_engine.NextDue().value_or(Time::max()));
    if (due == Time::max()) {
        return INFINITE;
    }
    // Rounded up: waking too early would only mean to wait once more.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - console::Now()).count();
    return static_cast<DWORD>(std::clamp<std::int64_t>(left, 0, 60'000));
}

std::optional<Endpoint::End> Endpoint::LimitReached(const Limits& limits, Time end) const
{
    if (console::Now() >= end) {
        return End::TimeOver;
    }
    const bool allWritten = !m_engine.HasUnsent() && !m_write.IsPending();
    const bool enough = std::cmp_greater_equal(m_engine.Counted().requests, limits.requests);
    return limits.requests != 0 && enough && allWritten ? std::optional(End::EnoughRequests) : std::nullopt;
}

void Endpoint::PlayWhatIsDue()
{
    for (int step = 0; step < Burst && !m_end && !m_write.IsPending(); ++step) {
        switch (m_engine.Take(console::Now(), m_writing)) {
        case Engine::Order::Nothing: return;
        case Engine::Order::Write:
            StartWrite();
            ResultOf(m_write); // mostly it is complete already, and its event not waited for at all
            break;
        case Engine::Order::Vanish:
            Vanish();
            m_engine.Say("instrument vanished");
            break;
        case Engine::Order::Return:
            m_engine.Say("instrument back");
            Return();
            break;
        }
    }
}

} // namespace instrument
