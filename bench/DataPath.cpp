#include "bench/DataPath.h"

#include "bench/Measure.h"
#include "console/Console.h"
#include "tests/support/UniqueName.h"

#include <stdexcept>

namespace bench {

namespace {

constexpr std::chrono::seconds OpenTimeout{20};
constexpr std::chrono::milliseconds AnswerTimeout{1000};

} // namespace

void Demand(bool holds, const char* what)
{
    if (!holds) {
        throw std::runtime_error(what);
    }
}

Instrument::Instrument(const std::wstring& role, const std::wstring& pipe)
    : m_pipe(pipe),
      m_recordName(support::UniqueName(L"BenchInstrument")),
      m_shared(m_recordName),
      m_process(role, pipe, m_recordName)
{
}

void Instrument::Set(Mode mode, std::uint64_t goal) const
{
    m_shared.Record().goal = goal;
    m_shared.Record().mode = mode;
}

void Instrument::AwaitGoal() const
{
    Demand(support::WaitFor(m_shared.Reached(), std::chrono::minutes(2)), "the stream does not arrive");
}

BareInstrument::BareInstrument() : Instrument(L"bare", support::UniqueName(L"BenchEcho")) {}

RunningRouter::RunningRouter(RouterSession& session) : m_session(session)
{
    Demand(m_session.Activate(), "the router does not start");
}

RunningRouter::~RunningRouter()
{
    m_session.Release();
    if (m_session.WaitForEnd() != 0u) {
        console::Say("FAILED: the router did not end with code 0");
    }
}

std::unique_ptr<PipeEnd> RunningRouter::OpenPort(LONG deviceType, ULONG port, LONG readSize)
{
    const std::wstring name = support::UniqueName(L"BenchPort");
    Demand(m_session.RegisterPort(deviceType, port, name, readSize) == S_OK, "a port is not registered");
    const std::vector<std::uint8_t> hello(8, 'h');
    for (int attempt = 0; attempt < 50; ++attempt) {
        auto client = std::make_unique<PipeEnd>();
        Demand(client->Open(name, OpenTimeout), "a port's pipe does not open");
        client->ReadMessages();
        if (client->Write(hello) && client->ReadWithin(AnswerTimeout).size() == hello.size()) {
            return client;
        }
    }
    throw std::runtime_error("a port's pipe does not stay open");
}

void RoundTrip(PipeEnd& client, std::span<const std::uint8_t> message, std::size_t count,
               std::vector<double>* times)
{
    for (std::size_t i = 0; i < count; ++i) {
        const Stopwatch watch;
        Demand(client.Write(message) && client.ReadExactly(message.size()), "a pipe broke");
        if (times != nullptr) {
            times->push_back(watch.Nanoseconds() / 1000);
        }
    }
}

BarePipelinePath::BarePipelinePath()
    : m_pipe(support::UniqueName(L"BenchBarePipeline")), m_process(L"pipeline", m_pipe, m_instrument.Pipe())
{
    Demand(m_client.Open(m_pipe, OpenTimeout), "the bare pipeline's pipe does not open");
}

DirectPath::DirectPath()
{
    Demand(m_client.Open(m_instrument.Pipe(), OpenTimeout), "the instrument's pipe does not open");
    m_client.ReadMessages();
}

} // namespace bench
