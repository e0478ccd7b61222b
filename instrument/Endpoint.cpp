#include "instrument/Endpoint.h"

#include "console/Console.h"

#include <algorithm>
#include <utility>

namespace instrument {

Endpoint::End Endpoint::Run(const Limits& limits)
{
    const std::optional<Time> end = limits.time ? std::optional(console::Now() + *limits.time) : std::nullopt;
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

DWORD Endpoint::WaitTime(std::optional<Time> end) const
{
    // What is due while a write is pending waits for the end of the write.
    const Time due =
        std::min(end.value_or(Time::max()), IsWriting() ? Time::max() : m_engine.NextDue().value_or(Time::max()));
    if (due == Time::max()) {
        return INFINITE;
    }
    // Rounded up: waking too early would only mean to wait once more.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - console::Now()).count();
    return static_cast<DWORD>(std::clamp<std::int64_t>(left, 0, 60'000));
}

void Endpoint::CheckLimits(const Limits& limits, std::optional<Time> end)
{
    if (m_end) {
        return;
    }
    const bool allWritten = !m_engine.HasUnsent() && !IsWriting();
    if (end && console::Now() >= *end) {
        m_end = End::TimeOver;
    } else if (limits.requests && m_engine.Counted().requests >= *limits.requests && allWritten) {
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
