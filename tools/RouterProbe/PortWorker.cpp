#include "PortWorker.h"

#include "Refusal.h"

#include <algorithm>
#include <utility>

namespace {

/// Messages that wait for the job; more wait in the router.
constexpr std::uint32_t QueueLimit = 10'000;

} // namespace

PortWorker::PortWorker(const ProbeOptions& options, const ProbePort& port, const console::StopSignal& stop,
                       std::unique_ptr<PortJob> job, Listener listener)
    : m_options(options), m_port(port), m_stop(stop), m_job(std::move(job)), m_listener(std::move(listener))
{
}

bool PortWorker::OpenPort()
{
    morvane_options options = morvane::Options(m_port.deviceType, m_port.port);
    // The probe shows what the router does with what it is given, and tells late replies by their number.
    options.flags = MORVANE_BACKGROUND | MORVANE_RAW;
    options.flags |= m_options.attach ? MORVANE_ATTACH : 0;
    options.flags |= m_options.lateBound ? MORVANE_LATE_BOUND : 0;
    options.flags |= m_options.keepGoing ? 0 : MORVANE_NO_RESTART;
    options.read_size = static_cast<std::uint32_t>(m_options.readSize);
    options.write_size = static_cast<std::uint32_t>(m_options.writeSize);
    options.open_timeout =
        static_cast<std::uint32_t>(std::clamp<std::int64_t>(m_options.openTimeout.count(), 1, INT32_MAX));
    options.queue_limit = QueueLimit;
    options.name = m_port.pipeName.c_str();
    int error = MORVANE_OK;
    m_pipe = morvane::Port(options, error);
    if (error == MORVANE_E_ARGUMENT) {
        m_fault = ProbeFault{ExitCode::Usage, "'" + m_port.pipeName + "' can't be the name of a pipe"};
    } else if (error != MORVANE_OK) {
        m_fault = ProbeFault{ExitCode::Unexpected, morvane_error_text(error)};
    }
    return error == MORVANE_OK;
}

bool PortWorker::Start()
{
    if (!OpenPort()) {
        return false;
    }
    const bool isStarted = m_thread.Start([this] {
        try {
            Work();
        } catch (const std::exception& fault) {
            m_fault = ProbeFault{ExitCode::Unexpected, m_port.Label() + " " + fault.what()};
        }
        m_listener.ended();
        // By its number: the main thread may be about to cancel.
        morvane_close(m_pipe.Get());
    });
    if (!isStarted) {
        m_fault = ProbeFault{ExitCode::Unexpected, "no thread for a port"};
    }
    return isStarted;
}

void PortWorker::Cancel()
{
    m_job->Stop();
    m_pipe.Cancel();
}

void PortWorker::Work()
{
    m_openUntil = console::Now() + m_options.openTimeout;
    while (AwaitPipe()) {
        switch (m_job->Run(m_pipe)) {
        case PortJob::End::Finished:
        case PortJob::End::Stopped:
        case PortJob::End::Failed: return;
        case PortJob::End::Broken: break;
        }
        if (!GoesOnAfterBreak()) {
            return;
        }
    }
}

bool PortWorker::AwaitPipe()
{
    for (;;) {
        // Without a reason nothing is certain yet: the router is being started, or the first opening is pending.
        const auto left = std::chrono::ceil<morvane::Timeout>(m_openUntil - console::Now());
        const auto event = m_pipe.NextEvent(m_refusal ? left : morvane::Forever);
        if (m_stop.IsSet()) {
            return false;
        }
        Next next = event ? OnEvent(*event) : Next::Wait;
        if (next == Next::Wait && m_refusal && console::Now() >= m_openUntil) {
            next = OnRefused();
        }
        if (next != Next::Wait) {
            return next == Next::GoOn;
        }
    }
}

PortWorker::Next PortWorker::OnEvent(const morvane_event& event)
{
    switch (event.kind) {
    case MORVANE_EVENT_CONNECTED:
    case MORVANE_EVENT_INSTRUMENT_BACK:
    case MORVANE_EVENT_ROUTER_BACK:
    case MORVANE_EVENT_REOPENED: OnOpened(); return Next::GoOn;
    case MORVANE_EVENT_NOT_YET:
        m_refusal = event;
        return IsFinal(FaultOf(m_port, event)) ? OnRefused() : Next::Wait;
    case MORVANE_EVENT_INSTRUMENT_GONE: m_refusal = event; return Next::Wait;
    case MORVANE_EVENT_ROUTER_GONE:
        m_refusal = event;
        m_refusal->error = MORVANE_E_ROUTER_GONE;
        if (m_options.keepGoing) {
            return Next::Wait;
        }
        m_fault = ProbeFault{ExitCode::PipeBroke, m_port.Label() + " the router ended while it was in use"};
        return Next::End;
    default: return Next::Wait;
    }
}

void PortWorker::OnOpened()
{
    const bool isFirst = !std::exchange(m_wasOpen, true);
    // Before the line: a reader of it may end the router at once.
    m_listener.opened(isFirst ? Opening::First : Opening::Again);
    if (isFirst && !m_options.quiet) {
        console::Say(m_port.Label() + " pipe open");
    } else if (!isFirst && m_saidGone) {
        console::Say(m_port.Label() + " pipe open again");
    }
    m_saidGone = false;
    m_lastRefusal.clear();
    m_refusal.reset();
}

PortWorker::Next PortWorker::OnRefused()
{
    const ProbeFault fault = FaultOf(m_port, *m_refusal);
    const bool isOfTheRouter = IsOfTheRouter(fault);
    if (!m_options.keepGoing || (isOfTheRouter && !m_wasOpen)) {
        m_fault = fault;
        return Next::End;
    }
    // A router that was there and has ended is the main thread's to report.
    if (!isOfTheRouter && std::exchange(m_lastRefusal, fault.text) != fault.text) {
        console::Say(fault.text + "; still trying");
        m_saidGone = true;
    }
    m_openUntil = console::Now() + std::max(m_options.openTimeout, morvane::Timeout(1));
    return Next::Wait;
}

bool PortWorker::GoesOnAfterBreak()
{
    m_refusal.reset();
    if (!m_job->HasHeard() && console::Now() < m_openUntil) {
        // The router was recreating its pipe when this one was opened.
        return true;
    }
    const std::string text =
        m_port.Label() + " pipe broke (" + std::to_string(m_job->BrokenBy()) + "): router or instrument gone";
    if (!m_options.keepGoing) {
        m_fault = ProbeFault{ExitCode::PipeBroke, text};
        return false;
    }
    console::Say(text + "; waiting for them");
    m_saidGone = true;
    m_openUntil = console::Now() + m_options.openTimeout;
    return true;
}

std::optional<ProbeFault> PortWorker::Fault() const
{
    return m_fault ? m_fault : m_job->Fault();
}
