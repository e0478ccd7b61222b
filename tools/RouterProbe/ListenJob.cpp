#include "ListenJob.h"

#include "instrument/SequencedPayload.h"

namespace {

constexpr std::chrono::milliseconds Round{1000};

/// While messages come without a pause nobody waits, so the stop signal is asked now and then.
constexpr std::uint64_t AskEvery = 64;

} // namespace

PortJob::End ListenJob::DoRun(ClientPipe& pipe)
{
    m_first = true;
    Bytes message;
    while (m_options.count == 0 || Done() < m_options.count) {
        const Outcome outcome = ReadMessage(pipe, message, Round);
        if (outcome == Outcome::TimedOut) {
            continue;
        }
        if (outcome != Outcome::Done) {
            return EndOf(outcome, "");
        }
        CountDone();
        if (m_options.check) {
            Check(message);
        }
        if (!m_options.quiet) {
            PrintMessage("got", message);
        }
        if (Done() % AskEvery == 0 && m_stop.IsSet()) {
            return End::Stopped;
        }
    }
    return End::Finished;
}

void ListenJob::Check(const Bytes& message)
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
