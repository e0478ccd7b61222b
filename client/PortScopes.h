// What a thread is to a port for a while. All are made and destroyed with the port's lock held, which the analysis
// cannot see in a destructor.
#pragma once

#include "client/Port.h"

#include <algorithm>

namespace clientlib {

/// A call of a client.
class Port::Call
{
public:
    Call(Port& port, std::uint32_t timeout) REQUIRES(port.m_lock)
        : epoch(port.m_epoch),
          m_port(port),
          m_isLimited(timeout != MORVANE_FOREVER),
          m_end(Clock::now() + std::chrono::milliseconds(m_isLimited ? timeout : 0))
    {
        ++port.m_calls;
    }
    ~Call() NO_THREAD_SAFETY_ANALYSIS
    {
        if (--m_port.m_calls == 0 && m_port.m_closing) {
            m_port.m_changed.WakeAll();
        }
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// 0 when the time is over.
    DWORD Left() const
    {
        if (!m_isLimited) {
            return INFINITE;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_end - Clock::now()).count();
        return static_cast<DWORD>(std::clamp<std::int64_t>(left, 0, INFINITE - 1));
    }
    bool IsOver() const { return m_isLimited && Clock::now() >= m_end; }

    std::uint64_t epoch; // of the cancellations before the call

private:
    Port& m_port;
    const bool m_isLimited;
    const Clock::time_point m_end;
};

/// A call that reads the pipe itself, so that the worker need not.
class Port::Receiver
{
public:
    explicit Receiver(Port& port) REQUIRES(port.m_lock) : m_port(port) { ++port.m_receivers; }
    ~Receiver() NO_THREAD_SAFETY_ANALYSIS
    {
        --m_port.m_receivers;
        m_port.m_lastReceiver = Clock::now();
        if (m_port.m_workerAsleep) {
            m_port.m_workerWake.WakeOne();
        }
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

private:
    Port& m_port;
};

/// A call that waits until the router has read everything.
class Port::FlushScope
{
public:
    explicit FlushScope(Port& port) REQUIRES(port.m_lock) : m_port(port) { m_port.m_outbox.BeginFlush(); }
    ~FlushScope() NO_THREAD_SAFETY_ANALYSIS { m_port.m_outbox.EndFlush(); }
    FlushScope(const FlushScope&) = delete;
    FlushScope& operator=(const FlushScope&) = delete;

private:
    Port& m_port;
};

/// One of the port's roles.
class Port::Flag
{
public:
    explicit Flag(bool& flag) noexcept : m_flag(flag) { m_flag = true; }
    ~Flag() { m_flag = false; }
    Flag(const Flag&) = delete;
    Flag& operator=(const Flag&) = delete;

private:
    bool& m_flag;
};

/// A request's turn, or a resynchronisation's.
class Port::Turn
{
public:
    explicit Turn(Port& port) REQUIRES(port.m_lock) : m_port(port) { m_port.m_requesting = true; }
    ~Turn() NO_THREAD_SAFETY_ANALYSIS
    {
        m_port.m_requesting = false;
        // A receiver that reads the pipe looks only at what comes from now on.
        if (m_port.m_reading && !m_port.m_inbox.expected.empty()) {
            m_port.InterruptReading();
        }
        m_port.m_changed.WakeAll();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    Port& m_port;
};

} // namespace clientlib
