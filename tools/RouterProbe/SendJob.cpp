#include "SendJob.h"

#include <array>
#include <cstdio>

namespace {

std::string MillisecondsText(std::chrono::microseconds time)
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.3f ms", static_cast<double>(time.count()) / 1000);
    return text.data();
}

} // namespace

PortJob::End SendJob::DoRun(ClientPipe& pipe)
{
    const auto& requests = m_options.requests;
    while (m_options.count == 0 || m_next / requests.size() < m_options.count) {
        if (m_next != 0 && m_options.interval.count() != 0 &&
            m_stop.Wait(static_cast<DWORD>(m_options.interval.count())))
        {
            return End::Stopped;
        }
        if (const auto end = SendOne(pipe, requests[m_next % requests.size()])) {
            // A request that may have been served already is not sent again. One on a pipe that broke before it
            // served anything is.
            if (*end == End::Broken && HasHeard()) {
                ++m_next;
            }
            return *end;
        }
        ++m_next;
    }
    return Linger(pipe);
}

std::optional<PortJob::End> SendJob::SendOne(ClientPipe& pipe, const Bytes& request)
{
    const std::string name = "request " + std::to_string(m_next + 1);
    const auto start = console::Now();
    if (const Outcome outcome = pipe.Write(request, m_options.replyTimeout); outcome != Outcome::Done) {
        return EndOf(outcome, name + " can't be written: the router does not read");
    }
    CountBytes(request.size());
    if (m_options.noWait) {
        return std::nullopt;
    }
    Bytes reply;
    if (const Outcome outcome = ReadMessage(pipe, reply, m_options.replyTimeout); outcome != Outcome::Done) {
        const std::string late = "no reply to " + name + " within " + MillisecondsText(m_options.replyTimeout);
        if (outcome == Outcome::TimedOut && m_options.keepGoing) {
            ++m_unanswered;
            console::Say(m_port.Label() + " " + late);
            return std::nullopt;
        }
        return EndOf(outcome, late);
    }
    CountDone();
    const bool wrong = m_options.check && reply != request;
    m_wrong += wrong ? 1 : 0;
    if (!m_options.quiet || wrong) {
        PrintMessage((wrong ? "wrong reply to " : "reply to ") + name + " after " +
                         MillisecondsText(console::Now() - start) + ",",
                     reply);
    }
    return std::nullopt;
}

std::optional<ProbeFault> SendJob::Fault() const
{
    if (auto fault = PortJob::Fault()) {
        return fault;
    }
    if (m_wrong != 0) {
        return ProbeFault{ExitCode::WrongReply, m_port.Label() + " " + std::to_string(m_wrong) + " wrong replies"};
    }
    if (m_unanswered != 0) {
        return ProbeFault{ExitCode::ReplyLate, m_port.Label() + " " + std::to_string(m_unanswered) +
                                                   " requests without a reply in time"};
    }
    return std::nullopt;
}
