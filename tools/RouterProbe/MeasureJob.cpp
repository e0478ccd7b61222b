#include "MeasureJob.h"

#include "console/SequencedPayload.h"

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

PortJob::End MeasureJob::DoRun(const morvane::Port& pipe)
{
    while (m_options.count == 0 || Done() + m_lost < m_options.count) {
        if (!MayAsk(m_number == 0)) {
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
    JudgeOthers(pipe);
    return Linger(pipe);
}

std::optional<PortJob::End> MeasureJob::Round(const morvane::Port& pipe)
{
    sequenced::Fill(m_request, ++m_number, m_port.Mark());
    bool hasOthers = m_options.interval.count() != 0;
    const auto isReply = [&](morvane::View message) {
        const bool isEcho = std::ranges::equal(message, m_request);
        hasOthers = hasOthers || !isEcho;
        return isEcho;
    };
    int error = MORVANE_OK;
    const auto start = console::Now();
    const std::size_t length = pipe.RequestMatch(m_request, isReply, Room(), m_options.replyTimeout, error);
    const auto time = console::Now() - start;
    const Outcome outcome = OutcomeOf(error);
    CountBytes(outcome != Outcome::NotRead ? m_request.size() : 0);
    if (hasOthers) {
        JudgeOthers(pipe);
    }
    switch (outcome) {
    case Outcome::Done:
        TakeMessage(length);
        OnReply(time);
        return std::nullopt;
    case Outcome::TimedOut: return OnLate();
    default: return EndOf(outcome, RequestName());
    }
}

void MeasureJob::OnReply(std::chrono::microseconds time)
{
    m_times.Add(time);
    CountDone();
    if (m_options.command == ProbeOptions::Command::Ping && !m_options.quiet) {
        std::array<char, 100> line{};
        std::snprintf(line.data(), line.size(), " reply %llu: %zu bytes in %.3f ms",
                      static_cast<unsigned long long>(m_number), Message().size(), Milliseconds(time));
        console::Say(m_port.Label() + line.data());
    }
}

std::optional<PortJob::End> MeasureJob::OnLate()
{
    ++m_lost;
    m_open.insert(m_number);
    if (!m_options.keepGoing) {
        return EndOf(Outcome::TimedOut, RequestName());
    }
    console::Say(m_port.Label() + " " + NoReplyTo(RequestName()));
    return std::nullopt;
}

void MeasureJob::JudgeOthers(const morvane::Port& pipe)
{
    ForEachUnsolicited(pipe, [this](morvane::View message) {
        CountBytes(message.size());
        Judge(message);
    });
}

void MeasureJob::Judge(morvane::View message)
{
    const auto number = sequenced::NumberIn(message, m_port.Mark());
    if (number && *number <= m_number && message.size() == m_request.size()) {
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
        return WithoutReply(m_lost);
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
