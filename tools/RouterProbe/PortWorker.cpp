#include "PortWorker.h"

#include <utility>

namespace {

std::wstring PathOf(const ProbePort& port)
{
    return console::Wide(R"(\\.\pipe\)" + port.pipeName);
}

std::string Code(DWORD error)
{
    return " (" + std::to_string(error) + ")";
}

/// Why a pipe could not be opened. Nothing tells a missing instrument from a port that another client registered
/// under its own pipe name: Register succeeds in both cases.
std::string Refusal(bool busy, DWORD error)
{
    if (busy) {
        return " is busy" + Code(error) + ": another client holds the port";
    }
    if (error == ERROR_FILE_NOT_FOUND) {
        return " does not appear" + Code(error) +
               ": no instrument is connected, or the port is registered under another pipe name";
    }
    return " can't be opened" + Code(error);
}

} // namespace

PortWorker::PortWorker(const ProbeOptions& options, const ProbePort& port, const console::StopSignal& stop,
                       std::unique_ptr<PortJob> job, Listener listener)
    : m_options(options),
      m_port(port),
      m_stop(stop),
      m_job(std::move(job)),
      m_listener(std::move(listener)),
      m_pipe(PathOf(port), stop.Get())
{
}

bool PortWorker::Start()
{
    return m_thread.Start([this] {
        try {
            Work();
        } catch (const std::exception& fault) {
            m_fault = ProbeFault{ExitCode::Unexpected, m_port.Label() + " " + fault.what()};
        }
        // The router's port waits for its client when it stops, so the pipe is closed before the router is
        // released.
        m_pipe.Close();
        m_listener.ended();
    });
}

void PortWorker::Work()
{
    m_openUntil = console::Now() + m_options.openTimeout;
    while (Open()) {
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

bool PortWorker::Open()
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_openUntil - console::Now());
        const ClientPipe::Outcome outcome = m_pipe.Open(left);
        if (outcome == ClientPipe::Outcome::Done) {
            if (!std::exchange(m_wasOpen, true)) {
                if (!m_options.quiet) {
                    console::Say(m_port.Label() + " pipe open");
                }
                m_listener.opened();
            } else if (std::exchange(m_saidGone, false)) {
                console::Say(m_port.Label() + " pipe open again");
            }
            m_lastRefusal.clear();
            return true;
        }
        if (outcome == ClientPipe::Outcome::Stopped) {
            return false;
        }
        const bool busy = outcome == ClientPipe::Outcome::Busy;
        const std::string text =
            m_port.Label() + R"( \\.\pipe\)" + m_port.pipeName + Refusal(busy, m_pipe.Error());
        if (!m_options.keepGoing) {
            m_fault = ProbeFault{busy ? ExitCode::PipeBusy : ExitCode::NeverServed, text};
            return false;
        }
        if (std::exchange(m_lastRefusal, text) != text) {
            console::Say(text + "; still trying");
        }
        m_saidGone = true;
        m_listener.unserved();
        m_openUntil = console::Now() + m_options.openTimeout;
    }
}

bool PortWorker::GoesOnAfterBreak()
{
    if (!m_job->HasHeard() && console::Now() < m_openUntil) {
        // The router was making its pipe anew when this one was opened.
        return true;
    }
    const std::string text = m_port.Label() + " pipe broke" + Code(m_pipe.Error()) + ": router or instrument gone";
    if (!m_options.keepGoing) {
        m_fault = ProbeFault{ExitCode::PipeBroke, text};
        return false;
    }
    console::Say(text + "; waiting for them");
    m_saidGone = true;
    m_listener.unserved();
    m_openUntil = console::Now() + m_options.openTimeout;
    return true;
}

std::optional<ProbeFault> PortWorker::Fault() const
{
    return m_fault ? m_fault : m_job->Fault();
}
