#include "PortJob.h"

#include "console/HexDump.h"

PortJob::End PortJob::Run(ClientPipe& pipe)
{
    m_heard = false;
    return DoRun(pipe);
}

PortJob::Outcome PortJob::ReadMessage(ClientPipe& pipe, Bytes& message, std::chrono::milliseconds timeout)
{
    const Outcome outcome = pipe.Read(message, timeout);
    if (outcome == Outcome::Done) {
        m_heard = true;
        CountBytes(message.size());
    }
    return outcome;
}

PortJob::End PortJob::Linger(ClientPipe& pipe)
{
    const auto end = console::Now() + m_options.linger;
    Bytes message;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - console::Now());
        if (left.count() <= 0) {
            return End::Finished;
        }
        const Outcome outcome = ReadMessage(pipe, message, left);
        if (outcome == Outcome::Done) {
            PrintMessage("got", message);
        } else if (outcome != Outcome::TimedOut) {
            return EndOf(outcome, "");
        }
    }
}

void PortJob::PrintMessage(const std::string& what, const Bytes& message) const
{
    console::Say(m_port.Label() + " " + what + " " + std::to_string(message.size()) + " bytes\n" +
                 hexdump::Lines(message));
}

PortJob::End PortJob::FailWith(ExitCode code, const std::string& text)
{
    m_fault = ProbeFault{code, m_port.Label() + " " + text};
    return End::Failed;
}

PortJob::End PortJob::EndOf(Outcome outcome, const std::string& whenTimedOut)
{
    switch (outcome) {
    case Outcome::Stopped: return End::Stopped;
    case Outcome::TimedOut: return FailWith(ExitCode::ReplyLate, whenTimedOut);
    default: return End::Broken;
    }
}
