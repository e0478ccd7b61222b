#include "Probe.h"

#include "ListenJob.h"
#include "MeasureJob.h"
#include "SendJob.h"

#include "win32/WaitSet.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

using Command = ProbeOptions::Command;
using std::chrono::microseconds;

constexpr microseconds ProgressPeriod = std::chrono::seconds(1);
constexpr DWORD RouterRetryPause = 500;

double Seconds(microseconds time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

Probe::Probe(const ProbeOptions& options)
    : m_options(options),
      m_stop(options.stopEvent),
      m_ready(options.readyEvent),
      m_notOpened(options.ports.size()),
      m_running(options.ports.size()),
      m_session(options, m_stop)
{
}

std::optional<ProbeFault> Probe::Run()
{
    if (auto fault = m_session.Begin()) {
        m_session.End();
        return fault;
    }
    m_start = console::Now();
    m_lastProgress = m_start;
    StartWorkers();
    Watch();
    for (const auto& worker : m_workers) {
        worker->Join();
    }
    PrintSummary();
    m_session.End();
    const auto routerFault = m_session.WaitForRouterEnd();
    const auto fault = FirstFault();
    return fault ? fault : routerFault;
}

std::unique_ptr<PortJob> Probe::MakeJob(const ProbePort& port) const
{
    switch (m_options.command) {
    case Command::Send: return std::make_unique<SendJob>(m_options, port, m_stop);
    case Command::Listen: return std::make_unique<ListenJob>(m_options, port, m_stop);
    case Command::Ping:
    case Command::Measure: break;
    }
    return std::make_unique<MeasureJob>(m_options, port, m_stop);
}

void Probe::StartWorkers()
{
    for (const ProbePort& port : m_options.ports) {
        m_workers.push_back(
            std::make_unique<PortWorker>(m_options, port, m_stop, MakeJob(port),
                                         PortWorker::Listener{.opened = [this] { OnOpened(); },
                                                              .unserved = [this] { m_unserved = true; },
                                                              .ended = [this] { OnEnded(); }}));
    }
    for (const auto& worker : m_workers) {
        if (!worker->Start()) {
            m_fault = ProbeFault{ExitCode::Unexpected, "no thread for a port"};
            m_stop.Set();
            OnEnded();
        }
    }
}

void Probe::OnOpened()
{
    if (m_notOpened.fetch_sub(1) == 1) {
        m_ready.Set();
    }
}

void Probe::OnEnded()
{
    if (m_running.fetch_sub(1) == 1) {
        m_allEnded.Set();
    }
}

void Probe::Watch()
{
    for (;;) {
        const HANDLE router = m_session.ProcessHandle();
        const win32::WaitSet<Slot, 3> wait(m_allEnded.Get(), m_stop.Get(),
                                           router != nullptr ? router : m_never.Get());
        auto wakeAt = m_lastProgress + ProgressPeriod;
        if (m_options.duration) {
            wakeAt = std::min<microseconds>(wakeAt, m_start + *m_options.duration);
        }
        const auto timeout = std::chrono::ceil<std::chrono::milliseconds>(wakeAt - console::Now());
        switch (wait.Any(static_cast<DWORD>(std::max<std::int64_t>(timeout.count(), 0)))) {
        case Slot::RouterEnded: OnRouterEnded(); break;
        case Slot::AllEnded: return;
        case Slot::Stop: m_allEnded.Wait(INFINITE); return;
        case Slot::TimedOut: break;
        case Slot::Failed: m_stop.Set(); break;
        }
        if (m_options.duration && console::Now() >= m_start + *m_options.duration) {
            m_stop.Set();
        }
        PrintProgress();
        RegisterUnservedPorts();
    }
}

void Probe::RegisterUnservedPorts()
{
    // A port that another client registered first is removed with that client's object and must be registered to
    // be served again. A router that does not answer is reported by its end.
    if (m_unserved.exchange(false)) {
        m_session.RegisterPorts();
    }
}

void Probe::OnRouterEnded()
{
    const std::string text = m_session.EndText();
    if (m_options.keepGoing) {
        console::Say(text + "; starting it again");
        BringRouterBack();
        return;
    }
    m_fault = ProbeFault{ExitCode::PipeBroke, text + " while it was in use"};
    m_stop.Set();
    m_allEnded.Wait(INFINITE);
}

void Probe::BringRouterBack()
{
    const auto end = m_options.duration ? std::optional(m_start + *m_options.duration) : std::nullopt;
    while (const auto fault = m_session.Begin(end)) {
        if (end && console::Now() >= *end) {
            m_stop.Set();
        }
        const std::array<HANDLE, 2> ends = {m_allEnded.Get(), m_stop.Get()};
        if (::WaitForMultipleObjects(static_cast<DWORD>(ends.size()), ends.data(), FALSE, RouterRetryPause) !=
            WAIT_TIMEOUT)
        {
            return;
        }
    }
    console::Say("router started again");
}

void Probe::PrintProgress()
{
    const microseconds now = console::Now();
    if (now < m_lastProgress + ProgressPeriod) {
        return;
    }
    std::uint64_t done = 0;
    std::uint64_t bytes = 0;
    std::string ports;
    for (const auto& worker : m_workers) {
        const PortJob& job = worker->Job();
        done += job.Done();
        bytes += job.BytesMoved();
        ports += " " + std::to_string(job.Done());
    }
    const double period = Seconds(now - m_lastProgress);
    if (m_options.command == Command::Measure || (m_options.command == Command::Listen && m_options.quiet)) {
        std::array<char, 120> line{};
        std::snprintf(line.data(), line.size(), "%8.1f s %10.0f/s %8.3f MB/s, so far", Seconds(now - m_start),
                      static_cast<double>(done - m_lastDone) / period,
                      static_cast<double>(bytes - m_lastBytes) / period / 1e6);
        console::Say(line.data() + ports);
    }
    m_lastProgress = now;
    m_lastDone = done;
    m_lastBytes = bytes;
}

void Probe::PrintSummary() const
{
    const double seconds = Seconds(console::Now() - m_start);
    std::uint64_t done = 0;
    std::uint64_t bytes = 0;
    std::string text;
    for (const auto& worker : m_workers) {
        done += worker->Job().Done();
        bytes += worker->Job().BytesMoved();
        text += worker->Job().Summary();
    }
    if (!text.empty()) {
        std::array<char, 120> line{};
        std::snprintf(line.data(), line.size(), "summary: %.3f s, %.0f/s, %.3f MB/s\n", seconds,
                      static_cast<double>(done) / seconds, static_cast<double>(bytes) / seconds / 1e6);
        console::Say(line.data() + text);
    }
}

std::optional<ProbeFault> Probe::FirstFault() const
{
    if (m_fault) {
        return m_fault;
    }
    for (const auto& worker : m_workers) {
        if (auto fault = worker->Fault()) {
            return fault;
        }
    }
    return std::nullopt;
}
