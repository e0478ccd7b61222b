// What the probe does on one port.
#pragma once

#include "ProbeOptions.h"

#include "client/ClientPipe.h"
#include "console/Console.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

/// Runs on the thread of its port's worker; Progress may be asked by any thread, the rest is for after its end.
class PortJob
{
public:
    enum class End {
        Finished,
        Stopped,
        Broken, // the pipe broke; Run may be called again with a new one and goes on where it was
        Failed, // and Fault() says how
    };

    PortJob(const ProbeOptions& options, const ProbePort& port, const console::StopSignal& stop)
        : m_options(options), m_port(port), m_stop(stop)
    {
    }
    virtual ~PortJob() = default;
    PortJob(const PortJob&) = delete;
    PortJob& operator=(const PortJob&) = delete;

    End Run(ClientPipe& pipe);

    /// True when anything was read since the pipe was opened: the router really serves it.
    bool HasHeard() const noexcept { return m_heard; }

    /// Rounds (or messages) done and bytes moved both ways so far.
    std::uint64_t Done() const noexcept { return m_done.load(std::memory_order_relaxed); }
    std::uint64_t BytesMoved() const noexcept { return m_bytes.load(std::memory_order_relaxed); }

    /// What went wrong, if anything; a job that ran to its end may have found faults, too.
    virtual std::optional<ProbeFault> Fault() const { return m_fault; }
    /// Lines for the end; empty when there is nothing to say.
    virtual std::string Summary() const { return {}; }

protected:
    using Bytes = ProbeOptions::Bytes;
    using Outcome = ClientPipe::Outcome;

    virtual End DoRun(ClientPipe& pipe) = 0;

    /// Reads one message, counts it and says what the end of the job would be otherwise.
    Outcome ReadMessage(ClientPipe& pipe, Bytes& message, std::chrono::milliseconds timeout);
    /// Prints whatever comes for the time of --linger.
    End Linger(ClientPipe& pipe);
    void PrintMessage(const std::string& what, const Bytes& message) const;

    End FailWith(ExitCode code, const std::string& text);
    /// The end of a job whose step ended with `outcome`, which is not Done.
    End EndOf(Outcome outcome, const std::string& whenTimedOut);

    void CountDone() noexcept { m_done.fetch_add(1, std::memory_order_relaxed); }
    void CountBytes(std::size_t count) noexcept { m_bytes.fetch_add(count, std::memory_order_relaxed); }

    const ProbeOptions& m_options;
    const ProbePort& m_port;
    const console::StopSignal& m_stop;

private:
    std::optional<ProbeFault> m_fault;
    std::atomic<std::uint64_t> m_done{0};
    std::atomic<std::uint64_t> m_bytes{0};
    bool m_heard = false;
};
