#include "ListenJob.h"

#include "console/SequencedPayload.h"

namespace {

constexpr std::chrono::milliseconds Round{1000};

} // namespace

PortJob::End ListenJob::DoRun(const morvane::Port& pipe)
{
    m_first = true;
    while (m_options.count == 0 || Done() < m_options.count) {
        const Outcome outcome = IsStopped() ? Outcome::Stopped : ReadMessage(pipe, Round);
        if (outcome == Outcome::TimedOut) {
            continue;
        }
        if (outcome != Outcome::Done) {
            return EndOf(outcome);
        }
        CountDone();
        if (m_options.check) {
            Check(Message());
        }
        if (!m_options.quiet) {
            PrintMessage("got", Message());
        }
    }
    return End::Finished;
}

void ListenJob::Check(morvane::View message)
{
    const auto number = sequenced::NumberIn(message, m_port.Mark());
    if (!number) {
        ++m_foreign;
        return;
    }
    if (m_first || *number == m_expected) {
        m_expected = *number + 1;
    } else if (*number > m_expected) {
        m_lost += *number - m_expected;
        m_expected = *number + 1;
    } else {
        ++m_unordered;
    }
    m_first = false;
}

std::optional<ProbeFault> ListenJob::Fault() const
{
    auto fault = PortJob::Fault();
    if (!fault && m_lost + m_unordered + m_foreign != 0) {
        fault =
            ProbeFault{ExitCode::WrongReply, m_port.Label() + " messages lost, twice, out of order or changed"};
    }
    return fault;
}

std::string ListenJob::Summary() const
{
    std::string text =
        m_port.Label() + " " + std::to_string(Done()) + " messages, " + std::to_string(BytesMoved()) + " bytes";
    if (m_options.check) {
        text += ", " + std::to_string(m_lost) + " lost, " + std::to_string(m_unordered) +
                " twice or out of order, " + std::to_string(m_foreign) + " foreign or changed";
    }
    return text + "\n";
}
