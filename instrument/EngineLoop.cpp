#include "instrument/EngineLoop.h"

#include "console/Console.h"

#include <algorithm>
#include <utility>

using instrument::InstrumentEngine;
using std::chrono::microseconds;

namespace {

DWORD MillisecondsUntil(microseconds due, microseconds now)
{
    // Rounded up: waking too early would only mean to wait once more.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - now).count();
    return static_cast<DWORD>(std::clamp<std::int64_t>(left, 0, 60'000));
}

void Tell(const std::function<void()>& what)
{
    if (what) {
        what();
    }
}

} // namespace

EngineLoop::EngineLoop(InstrumentEngine& engine, Listener listener)
    : m_engine(engine), m_listener(std::move(listener))
{
}

EngineLoop::End EngineLoop::Run(const Limits& limits)
{
    const std::optional<microseconds> end =
        limits.time ? std::optional(console::Now() + *limits.time) : std::nullopt;
    m_end.reset();
    Begin();
    while (!m_end) {
        Await(Patience(end));
        PlayWhatIsDue();
        Tell(m_listener.pass);
        CheckLimits(limits, end);
    }
    Leave();
    return *m_end;
}

DWORD EngineLoop::Patience(std::optional<microseconds> end) const
{
    std::optional<microseconds> due = end;
    const auto earlier = [&due](std::optional<microseconds> time) {
        if (time && (!due || *time < *due)) {
            due = time;
        }
    };
    // What is due while a write is under way waits for the write's end.
    if (!IsWriting()) {
        earlier(m_engine.NextDue());
    }
    earlier(NextDue());
    return due ? MillisecondsUntil(*due, console::Now()) : INFINITE;
}

void EngineLoop::CheckLimits(const Limits& limits, std::optional<microseconds> end)
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

void EngineLoop::PlayWhatIsDue()
{
    DoWhatIsDue();
    for (int step = 0; step < Burst && !m_end && !IsWriting(); ++step) {
        if (!Play(m_engine.Take(console::Now(), m_writing))) {
            return;
        }
    }
}

bool EngineLoop::Play(InstrumentEngine::Order order)
{
    switch (order) {
    case InstrumentEngine::Order::Nothing: return false;
    case InstrumentEngine::Order::Write: Write(m_writing); break;
    case InstrumentEngine::Order::Vanish:
        Vanish();
        Tell(m_listener.vanished);
        break;
    case InstrumentEngine::Order::Return:
        Tell(m_listener.returned);
        Return();
        break;
    }
    return true;
}

void EngineLoop::FinishWith(End end, std::string failure)
{
    m_end = end;
    m_failure = std::move(failure);
}

void EngineLoop::OnServed()
{
    if (!std::exchange(m_announced, true)) {
        Tell(m_listener.served);
    }
}

void EngineLoop::OnConnected()
{
    m_engine.Connected(console::Now());
    Tell(m_listener.connected);
}

void EngineLoop::OnRouterGone(const std::string& reason)
{
    m_engine.Disconnected(console::Now());
    if (m_listener.routerGone) {
        m_listener.routerGone(reason);
    }
}
