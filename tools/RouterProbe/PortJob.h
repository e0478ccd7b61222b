// What the probe does on one port.
#pragma once

#include "ProbeOptions.h"

#include "client/morvane_client.hpp"
#include "console/Console.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// Runs on the thread of its port's worker. Stop and the counters are any thread's, the rest is for after its end.
class PortJob
{
public:
    enum class End {
        Finished,
        Stopped,
        Broken, // the pipe broke; Run may be called again once there is a new one and goes on where it was
        Failed, // and Fault() says how
    };

    PortJob(const ProbeOptions& options, const ProbePort& port, const console::StopSignal& stop);
    virtual ~PortJob() = default;
    PortJob(const PortJob&) = delete;
    PortJob& operator=(const PortJob&) = delete;

    End Run(const morvane::Port& pipe);

    /// The job ends before its next call of the library. A call that is pending is the caller's to cancel.
    void Stop() noexcept { m_stopped.store(true); }

    /// True when anything was read since Run: the router really serves the pipe.
    bool HasHeard() const noexcept { return m_heard; }
    /// The Windows error of the last Broken.
    std::uint32_t BrokenBy() const noexcept { return m_brokenBy; }

    /// Rounds (or messages) done and bytes moved both ways so far.
    std::uint64_t Done() const noexcept { return m_done.load(std::memory_order_relaxed); }
    std::uint64_t BytesMoved() const noexcept { return m_bytes.load(std::memory_order_relaxed); }

    /// What went wrong, if anything; a job that ran to its end may have found faults, too.
    virtual std::optional<ProbeFault> Fault() const { return m_fault; }
    /// Lines for the end; empty when there is nothing to say.
    virtual std::string Summary() const { return {}; }

protected:
    enum class Outcome { Done, Stopped, TimedOut, NotRead, Broken };

    virtual End DoRun(const morvane::Port& pipe) = 0;

    /// What a call of the library came to. Throws what no job can go on after.
    Outcome OutcomeOf(int error);
    /// Reads the next message into Message().
    Outcome ReadMessage(const morvane::Port& pipe, std::chrono::milliseconds timeout);
    /// The buffer for a message, and the first `length` bytes of it once they have come.
    std::span<std::uint8_t> Room() noexcept { return m_room; }
    morvane::View Message() const noexcept { return {m_room.data(), m_length}; }
    void TakeMessage(std::size_t length) noexcept;

    /// Takes what the library has set aside: messages that were no replies.
    template <class Body>
    static void ForEachUnsolicited(const morvane::Port& pipe, Body body)
    {
        int error = MORVANE_OK;
        auto message = pipe.ReceiveUnsolicited({}, error);
        for (; error == MORVANE_OK; message = pipe.ReceiveUnsolicited({}, error)) {
            body(message);
        }
    }
    /// Prints whatever comes for the time of --linger.
    End Linger(const morvane::Port& pipe);
    void PrintMessage(const std::string& what, morvane::View message) const;

    End FailWith(ExitCode code, const std::string& text);
    /// The end of a job whose step ended with `outcome`, which is not Done; `request`: that of the step, if any.
    End EndOf(Outcome outcome, const std::string& request = {});
    std::string NoReplyTo(const std::string& request) const;
    ProbeFault WithoutReply(std::uint64_t requests) const;

    /// Waits for --interval, but not before the first request. False when the job is to end.
    bool MayAsk(bool isFirst) const;
    bool IsStopped() const noexcept { return m_stopped.load(std::memory_order_relaxed); }
    void CountDone() noexcept { m_done.fetch_add(1, std::memory_order_relaxed); }
    void CountBytes(std::size_t count) noexcept { m_bytes.fetch_add(count, std::memory_order_relaxed); }

    const ProbeOptions& m_options;
    const ProbePort& m_port;
    const console::StopSignal& m_stop;

private:
    std::optional<ProbeFault> m_fault;
    ProbeOptions::Bytes m_room;
    std::size_t m_length = 0; // of the message in m_room
    std::atomic<std::uint64_t> m_done{0};
    std::atomic<std::uint64_t> m_bytes{0};
    std::atomic<bool> m_stopped{false};
    std::uint32_t m_brokenBy = 0;
    bool m_heard = false;
};
