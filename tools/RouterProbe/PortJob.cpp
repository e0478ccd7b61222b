#include "PortJob.h"

#include "console/HexDump.h"

#include <stdexcept>

namespace {

/// Of any pipe's message: a packet's payload has at most 65,535 bytes.
constexpr std::size_t LongestMessage = 65536;

} // namespace

PortJob::PortJob(const ProbeOptions& options, const ProbePort& port, const console::StopSignal& stop)
    : m_options(options), m_port(port), m_stop(stop), m_room(LongestMessage)
{
}

PortJob::End PortJob::Run(const morvane::Port& pipe)
{
    m_heard = false;
    return DoRun(pipe);
}

PortJob::Outcome PortJob::OutcomeOf(int error)
{
    const auto windowsError = static_cast<std::uint32_t>(::GetLastError());
    switch (error) {
    case MORVANE_OK: return Outcome::Done;
    case MORVANE_E_TIMEOUT: return windowsError == ERROR_SEM_TIMEOUT ? Outcome::NotRead : Outcome::TimedOut;
    case MORVANE_E_CANCELLED: return Outcome::Stopped;
    case MORVANE_E_ARGUMENT:
    case MORVANE_E_MEMORY:
    case MORVANE_E_INTERNAL: throw std::runtime_error(morvane_error_text(error));
    default: m_brokenBy = windowsError; return Outcome::Broken;
    }
}

PortJob::Outcome PortJob::ReadMessage(const morvane::Port& pipe, std::chrono::milliseconds timeout)
{
    int error = MORVANE_OK;
    const std::size_t length = pipe.Receive(Room(), timeout, error);
    const Outcome outcome = OutcomeOf(error);
    if (outcome == Outcome::Done) {
        TakeMessage(length);
    }
    return outcome;
}

void PortJob::TakeMessage(std::size_t length) noexcept
{
    m_length = length;
    m_heard = true;
    CountBytes(length);
}

PortJob::End PortJob::Linger(const morvane::Port& pipe)
{
    const auto end = console::Now() + m_options.linger;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - console::Now());
        if (left.count() <= 0) {
            return End::Finished;
        }
        const Outcome outcome = IsStopped() ? Outcome::Stopped : ReadMessage(pipe, left);
        if (outcome == Outcome::Done) {
            PrintMessage("got", Message());
        } else if (outcome != Outcome::TimedOut) {
            return EndOf(outcome);
        }
    }
}

void PortJob::PrintMessage(const std::string& what, morvane::View message) const
{
    console::Say(m_port.Label() + " " + what + " " + std::to_string(message.size()) + " bytes\n" +
                 hexdump::Lines(message));
}

PortJob::End PortJob::FailWith(ExitCode code, const std::string& text)
{
    m_fault = ProbeFault{code, m_port.Label() + " " + text};
    return End::Failed;
}

PortJob::End PortJob::EndOf(Outcome outcome, const std::string& request)
{
    switch (outcome) {
    case Outcome::Stopped: return End::Stopped;
    case Outcome::TimedOut: return FailWith(ExitCode::ReplyLate, NoReplyTo(request));
    case Outcome::NotRead:
        return FailWith(ExitCode::ReplyLate, request + " can't be written: the router does not read");
    default: return End::Broken;
    }
}

std::string PortJob::NoReplyTo(const std::string& request) const
{
    return "no reply to " + request + " within " + std::to_string(m_options.replyTimeout.count()) + " ms";
}

ProbeFault PortJob::WithoutReply(std::uint64_t requests) const
{
    return {ExitCode::ReplyLate,
            m_port.Label() + " " + std::to_string(requests) + " requests without a reply in time"};
}

bool PortJob::MayAsk(bool isFirst) const
{
    const auto pause = isFirst ? 0 : m_options.interval.count();
    return !IsStopped() && (pause == 0 || !m_stop.Wait(static_cast<DWORD>(pause)));
}
