#include "Probe.h"

#include "ListenJob.h"
#include "MeasureJob.h"
#include "SendJob.h"

#include "win32/WaitSet.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace {

using Command = ProbeOptions::Command;
using std::chrono::microseconds;

constexpr microseconds ProgressPeriod = std::chrono::seconds(1);

/// Between two cancels of the workers' calls.
constexpr DWORD CancelPauseMs = 10;

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
      m_running(options.ports.size())
{
}

std::optional<ProbeFault> Probe::Run()
{
    m_start = console::Now();
    m_lastProgress = m_start;
    StartWorkers();
    Watch();
    const microseconds time = console::Now() - m_start;
    for (const auto& worker : m_workers) {
        worker->Join();
    }
    PrintSummary(time);
    const auto routerFault =
        m_options.waitExit && !m_options.attach ? m_router.WaitForEnd(*m_options.waitExit) : std::nullopt;
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
        m_workers.push_back(std::make_unique<PortWorker>(
            m_options, port, m_stop, MakeJob(port),
            PortWorker::Listener{.opened = [this](PortWorker::Opening opening) { OnOpened(opening); },
                                 .ended = [this] { OnEnded(); }}));
    }
    for (const auto& worker : m_workers) {
        if (!worker->Start()) {
            m_stop.Set();
            OnEnded();
        }
    }
}

void Probe::OnOpened(PortWorker::Opening opening)
{
    FindRouter();
    m_opened.Set();
    if (opening == PortWorker::Opening::First && m_notOpened.fetch_sub(1) == 1) {
        m_ready.Set();
    }
}

void Probe::OnEnded()
{
    FindRouter();
    if (m_running.fetch_sub(1) == 1) {
        m_allEnded.Set();
    }
}

void Probe::FindRouter()
{
    if (!m_options.attach) {
        m_router.Find();
    }
}

std::optional<microseconds> Probe::End() const
{
    if (!m_options.duration) {
        return std::nullopt;
    }
    return m_start + *m_options.duration + (m_hasBegun ? microseconds{} : m_options.openTimeout);
}

void Probe::Watch()
{
    for (;;) {
        const HANDLE router = m_router.ProcessHandle();
        const win32::WaitSet<Slot, 4> wait(m_allEnded.Get(), m_stop.Get(), m_opened.Get(),
                                           router != nullptr ? router : m_never.Get());
        const auto wakeAt = std::min(m_lastProgress + ProgressPeriod, End().value_or(microseconds::max()));
        const auto timeout = std::chrono::ceil<std::chrono::milliseconds>(wakeAt - console::Now());
        switch (wait.Any(static_cast<DWORD>(std::max<std::int64_t>(timeout.count(), 0)))) {
        case Slot::AllEnded: return;
        case Slot::Opened: OnFirstOpening(); break;
        case Slot::RouterEnded:
            if (OnRouterEnded()) {
                break;
            }
            [[fallthrough]];
        case Slot::Failed: m_stop.Set(); [[fallthrough]];
        case Slot::Stop: EndWorkers(); return;
        case Slot::TimedOut: break;
        }
        if (const auto end = End(); end && console::Now() >= *end) {
            m_stop.Set();
        }
        PrintProgress();
        SayWhenRouterIsBack();
    }
}

void Probe::EndWorkers()
{
    do {
        for (const auto& worker : m_workers) {
            worker->Cancel();
        }
    } while (!m_allEnded.Wait(CancelPauseMs));
}

void Probe::OnFirstOpening()
{
    if (!std::exchange(m_hasBegun, true)) {
        m_start = console::Now();
        m_lastProgress = m_start;
    }
}

bool Probe::OnRouterEnded()
{
    const std::string text = m_router.EndText();
    if (!m_options.keepGoing) {
        m_fault = ProbeFault{ExitCode::PipeBroke, text + " while it was in use"};
        return false;
    }
    console::Say(text + "; starting it again");
    m_router.Forget();
    m_routerAwaited = true;
    return true;
}

void Probe::SayWhenRouterIsBack()
{
    if (!m_routerAwaited) {
        return;
    }
    m_router.Find();
    if (m_router.ProcessHandle() != nullptr) {
        m_routerAwaited = false;
        console::Say("router started again");
    }
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
    const bool isMeasured =
        m_options.command == Command::Measure || (m_options.command == Command::Listen && m_options.quiet);
    if (m_hasBegun && isMeasured) {
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

void Probe::PrintSummary(microseconds time) const
{
    const double seconds = Seconds(time);
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
