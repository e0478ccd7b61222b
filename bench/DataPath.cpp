#include "bench/DataPath.h"

#include "bench/Measure.h"
#include "console/Console.h"
#include "tests/support/UniqueName.h"

#include <stdexcept>

namespace bench {

namespace {

constexpr std::chrono::seconds OpenPatience{20};
constexpr std::chrono::milliseconds AnswerPatience{1000};

void Demand(bool holds, const char* what)
{
    if (!holds) {
        throw std::runtime_error(what);
    }
}

RoleNames InstrumentNames(const std::wstring& pipe, bool framed)
{
    RoleNames names;
    names.pipe = pipe;
    names.record = support::UniqueName(L"BenchInstrument");
    names.framed = framed;
    return names;
}

RoleNames BarePipelineNames(const std::wstring& simulator)
{
    RoleNames names;
    names.pipe = support::UniqueName(L"BenchBarePipeline");
    names.simulator = simulator;
    return names;
}

} // namespace

Instrument::Instrument(const std::wstring& pipe, bool framed)
    : m_names(InstrumentNames(pipe, framed)), m_shared(m_names.record), m_process(L"instrument", m_names)
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

DWORD RunningRouter::Id() const noexcept
{
    return ::GetProcessId(m_session.Process());
}

std::unique_ptr<PipeEnd> RunningRouter::OpenPort(LONG deviceType, ULONG port, LONG readSize)
{
    const std::wstring name = support::UniqueName(L"BenchPort");
    Demand(m_session.RegisterPort(deviceType, port, name, readSize) == S_OK, "a port is not registered");
    const std::vector<std::uint8_t> hello(8, 'h');
    for (int attempt = 0; attempt < 50; ++attempt) {
        auto client = std::make_unique<PipeEnd>();
        Demand(client->Open(name, OpenPatience), "a port's pipe does not open");
        client->ReadMessages();
        if (client->Write(hello) && client->ReadWithin(AnswerPatience).size() == hello.size()) {
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
    : m_instrument(support::UniqueName(L"BenchEcho"), false),
      m_names(BarePipelineNames(m_instrument.Pipe())),
      m_process(L"barePipeline", m_names)
{
    Demand(m_client.Open(m_names.pipe, OpenPatience), "the bare pipeline's pipe does not open");
}

DirectPath::DirectPath() : m_instrument(support::UniqueName(L"BenchDirect"), false)
{
    Demand(m_client.Open(m_instrument.Pipe(), OpenPatience), "the instrument's pipe does not open");
    m_client.ReadMessages();
}

} // namespace bench
