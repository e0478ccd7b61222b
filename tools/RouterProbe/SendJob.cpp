#include "SendJob.h"

#include <algorithm>
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

PortJob::End SendJob::DoRun(const morvane::Port& pipe)
{
    const auto& requests = m_options.requests;
    while (m_options.count == 0 || m_next / requests.size() < m_options.count) {
        if (!MayAsk(m_next == 0)) {
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

std::optional<PortJob::End> SendJob::SendOne(const morvane::Port& pipe, morvane::View request)
{
    if (!m_options.noWait) {
        return Request(pipe, request);
    }
    int error = MORVANE_OK;
    pipe.Send(request, m_options.replyTimeout, error);
    if (const Outcome outcome = OutcomeOf(error); outcome != Outcome::Done) {
        return EndOf(outcome, RequestName());
    }
    CountBytes(request.size());
    return std::nullopt;
}

std::optional<PortJob::End> SendJob::Request(const morvane::Port& pipe, morvane::View request)
{
    int error = MORVANE_OK;
    const auto start = console::Now();
    const std::size_t length = pipe.Request(request, Room(), m_options.replyTimeout, error);
    const auto time = console::Now() - start;
    const Outcome outcome = OutcomeOf(error);
    if (outcome == Outcome::NotRead) {
        return EndOf(outcome, RequestName());
    }
    CountBytes(request.size());
    ForEachUnsolicited(pipe, [this](morvane::View message) {
        if (!m_options.quiet) {
            PrintMessage("unsolicited:", message);
        }
    });
    if (outcome == Outcome::Done) {
        TakeMessage(length);
        JudgeReply(request, time);
        return std::nullopt;
    }
    if (outcome == Outcome::TimedOut && m_options.keepGoing) {
        ++m_unanswered;
        console::Say(m_port.Label() + " " + NoReplyTo(RequestName()));
        return std::nullopt;
    }
    return EndOf(outcome, RequestName());
}

void SendJob::JudgeReply(morvane::View request, std::chrono::microseconds time)
{
    CountDone();
    const bool wrong = m_options.check && !std::ranges::equal(Message(), request);
    m_wrong += wrong ? 1 : 0;
    if (!m_options.quiet || wrong) {
        PrintMessage((wrong ? "wrong reply to " : "reply to ") + RequestName() + " after " +
                         MillisecondsText(time) + ",",
                     Message());
    }
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
        return WithoutReply(m_unanswered);
    }
    return std::nullopt;
}
