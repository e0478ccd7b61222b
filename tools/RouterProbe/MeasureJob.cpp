#include "MeasureJob.h"

#include "instrument/SequencedPayload.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

constexpr std::size_t MostReserved = 1'000'000;

double Milliseconds(std::chrono::microseconds time)
{
    return static_cast<double>(time.count()) / 1000;
}

} // namespace

MeasureJob::MeasureJob(const ProbeOptions& options, const ProbePort& port, const console::StopSignal& stop)
    : PortJob(options, port, stop), m_request(options.size)
{
    m_times.Reserve(static_cast<std::size_t>(std::min<std::uint64_t>(options.count, MostReserved)));
}

PortJob::End MeasureJob::DoRun(ClientPipe& pipe)
{
    while (m_options.count == 0 || Done() + m_lost < m_options.count) {
        const bool pause = m_number != 0 && m_options.interval.count() != 0;
        if (pause && m_stop.Wait(static_cast<DWORD>(m_options.interval.count()))) {
            return End::Stopped;
        }
        if (const auto end = Round(pipe)) {
            if (*end == End::Broken) {
                ++m_interrupted;
                m_open.insert(m_number);
            }
            return *end;
        }
    }
    return Linger(pipe);
}

std::optional<PortJob::End> MeasureJob::Round(ClientPipe& pipe)
{
    sequenced::Fill(m_request, ++m_number, m_port.Mark());
    const auto start = console::Now();
    if (const Outcome outcome = pipe.Write(m_request, m_options.replyTimeout); outcome != Outcome::Done) {
        return EndOf(outcome,
                     "request " + std::to_string(m_number) + " can't be written: the router does not read");
    }
    CountBytes(m_request.size());
    return AwaitReply(pipe, start);
}

std::optional<PortJob::End> MeasureJob::AwaitReply(ClientPipe& pipe, std::chrono::microseconds start)
{
    const auto end = start + m_options.replyTimeout;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - console::Now());
        const Outcome outcome = left.count() > 0 ? ReadMessage(pipe, m_reply, left) : Outcome::TimedOut;
        if (outcome == Outcome::TimedOut) {
            return OnLate();
        }
        if (outcome != Outcome::Done) {
            return EndOf(outcome, "");
        }
        if (Judge(m_reply) == Reply::Awaited) {
            break;
        }
    }
    const auto time = console::Now() - start;
    m_times.Add(time);
    CountDone();
    if (m_options.command == ProbeOptions::Command::Ping && !m_options.quiet) {
        std::array<char, 100> line{};
        std::snprintf(line.data(), line.size(), " reply %llu: %zu bytes in %.3f ms",
                      static_cast<unsigned long long>(m_number), m_reply.size(), Milliseconds(time));
        console::Say(m_port.Label() + line.data());
    }
    return std::nullopt;
}

std::optional<PortJob::End> MeasureJob::OnLate()
{
    ++m_lost;
    m_open.insert(m_number);
    const std::string text = "no reply to request " + std::to_string(m_number) + " within " +
                             std::to_string(m_options.replyTimeout.count()) + " ms";
    if (!m_options.keepGoing) {
        return FailWith(ExitCode::ReplyLate, text);
    }
    console::Say(m_port.Label() + " " + text);
    return std::nullopt;
}

MeasureJob::Reply MeasureJob::Judge(const Bytes& message)
{
    if (message == m_request) {
        return Reply::Awaited;
    }
    const auto number = sequenced::NumberIn(message, m_port.Mark());
    if (number && *number < m_number && message.size() == m_request.size()) {
        m_open.erase(*number) != 0 ? ++m_late : ++m_duplicate;
    } else if (message.size() == m_request.size()) {
        ++m_wrong;
        PrintMessage("wrong reply to request " + std::to_string(m_number) + ",", message);
    } else {
        ++m_unsolicited;
        if (!m_options.quiet) {
            PrintMessage("unsolicited:", message);
        }
    }
    return Reply::Other;
}

std::optional<ProbeFault> MeasureJob::Fault() const
{
    if (auto fault = PortJob::Fault()) {
        return fault;
    }
    if (m_wrong + m_duplicate != 0) {
        return ProbeFault{ExitCode::WrongReply, m_port.Label() + " " + std::to_string(m_wrong) +
                                                    " wrong replies, " + std::to_string(m_duplicate) +
                                                    " came twice"};
    }
    if (m_lost != 0) {
        return ProbeFault{ExitCode::ReplyLate,
                          m_port.Label() + " " + std::to_string(m_lost) + " requests without a reply in time"};
    }
    return std::nullopt;
}

std::string MeasureJob::Summary() const
{
    const RoundTrips::Summary times = m_times.Summarize();
    std::array<char, 400> text{};
    std::snprintf(text.data(), text.size(),
                  " %llu answered, %llu lost, %llu twice, %llu wrong, %llu out of order, %llu interrupted, %llu "
                  "unsolicited; "
                  "ms min %.3f median %.3f p99 %.3f max %.3f\n",
                  static_cast<unsigned long long>(m_times.Count()), static_cast<unsigned long long>(m_lost),
                  static_cast<unsigned long long>(m_duplicate), static_cast<unsigned long long>(m_wrong),
                  static_cast<unsigned long long>(m_late), static_cast<unsigned long long>(m_interrupted),
                  static_cast<unsigned long long>(m_unsolicited), Milliseconds(times.least),
                  Milliseconds(times.median), Milliseconds(times.percentile99), Milliseconds(times.most));
    return m_port.Label() + text.data();
}
