// Rows that are counted instead of timed. What is counted is played first, under a Wine server that logs; the
// script count-requests counts; then the rows are added.
#include "bench/Ends.h"
#include "bench/Rows.h"
#include "tests/support/ProcessUsage.h"

#include <fstream>
#include <iomanip>
#include <map>

namespace bench {

namespace {

constexpr int TraceCalls = 1000;
constexpr int Ports = 8;

// Sections of the plan.
constexpr const char* BarePipelineTrips = "round trips through the bare pipeline";
constexpr const char* RouterTrips = "round trips through the router";
constexpr const char* UnwantedTraces = "trace calls that are not enabled";

/// A way of a router with eight ports to have nothing to do.
struct IdleState
{
    const char* name;
    bool hasInstrument;
    bool hasClients;
    double wakeUps; // a second, that the waits with a time in them ask for
};

// The reply thread's timeout of 1000 ms is not among the wake-ups: it waits without the server.
constexpr double Tray = 3; // its timer of 1000 ms, and the answers of the taskbar that it reports
// A quiet second queues an idle packet: the timeout, and the echo of this instrument, if it takes its time.
constexpr double CommandThread = 2;
constexpr double PortTimeouts = Ports * 20; // every 50 ms

// With no client connected the pipe is recreated after each timeout, by an event that is signalled already when it
// is waited for. Without an instrument ports look for a connection once a second, the command thread for the
// instrument every 10 ms.
constexpr std::array<IdleState, 3> IdleStates{{
    {"8 ports connected and quiet", true, true, Tray + CommandThread + PortTimeouts},
    {"8 ports, no client connected", true, false, Tray + CommandThread + PortTimeouts},
    {"8 ports, no instrument", false, false, Tray + Ports + 100},
}};

/// A program, or a part of it, whose threads are counted.
struct Program
{
    const char* name;
    std::vector<DWORD> threads;
};

/// Asks for an event that does not exist: the question is in the log.
void Mark(const std::string& what)
{
    const win32::KernelHandle none(::OpenEventA(SYNCHRONIZE, FALSE, ("bench " + what).c_str()));
}

/// What is played, for count-requests.
class Plan
{
public:
    explicit Plan(const std::filesystem::path& results)
        : m_plan(results / "plan.tsv"), m_processor(results / "processor.tsv")
    {
        // The server logs requests from the moment that any program of this session wants it to.
        ::SetEnvironmentVariableW(L"WINEDEBUG", L"+server");
        const support::ChildProcess any(support::ProgramFolder() / L"bench.exe", L"--help");
        ::SetEnvironmentVariableW(L"WINEDEBUG", L"-all");
        Demand(any.WaitForExit().has_value(), "the Wine server can't be asked to log");
    }

    /// What the threads of `programs` ask for during `action` counts for `section`, for one of so many trips or
    /// seconds as `action` returns.
    void Play(const std::string& section, const std::vector<Program>& programs,
              const std::function<double()>& action)
    {
        for (const Program& program : programs) {
            for (const DWORD thread : program.threads) {
                m_plan << section << '\t' << std::hex << std::setw(4) << std::setfill('0') << thread << std::dec
                       << '\t' << program.name << '\n';
            }
        }
        m_plan.flush(); // measure looks into it as soon as the section begins
        Mark("begin: " + section);
        const double count = action();
        Mark("end: " + section);
        m_plan << section << '\t' << count << '\n';
        // measure reads the processor time at the mark; the program may end only after that.
        support::WaitUntil([&] {
            std::ifstream marks(m_processor);
            return std::string(std::istreambuf_iterator<char>(marks), {}).find("end: " + section) !=
                   std::string::npos;
        });
    }

private:
    std::ofstream m_plan;
    const std::filesystem::path m_processor;
};

void PlayRoundTrips(Plan& plan, const RunSize& run, const char* section, const std::string& pipe,
                    const std::vector<Program>& programs)
{
    Client client(pipe);
    const std::vector<std::uint8_t> message(64, 'c');
    const auto trips = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            client.RoundTrip(message);
        }
        return static_cast<double>(count);
    };
    trips(WarmUps);
    plan.Play(section, programs, [&] { return trips(run.Times(200)); });
}

void PlayIdleState(Plan& plan, const RunSize& run, RouterSession& session, const IdleState& state)
{
    // The router does not find the bare one.
    const RoleProcess instrument = state.hasInstrument ? Simulator() : BareInstrument();
    const RunningRouter router(session);
    std::vector<Client> clients;
    for (ULONG port = 1; port <= Ports; ++port) {
        const std::string pipe = router.RegisterPort(port);
        if (state.hasClients) {
            clients.emplace_back(pipe);
        }
    }
    ::Sleep(500); // for what the start leaves to be done
    plan.Play(state.name, {{"router", ThreadsOf(router.Id())}}, [&] {
        const Stopwatch watch;
        ::Sleep(static_cast<DWORD>(run.Time(std::chrono::milliseconds(5000)).count()));
        return watch.Seconds();
    });
}

/// What count-requests and measure found for a section, for one trip or second.
struct Counted
{
    double requests = 0;
    double wakeUps = 0;
    double processor = 0; // seconds; negative: not known
};

std::map<std::string, Counted> ReadCounted(const std::filesystem::path& results)
{
    std::map<std::string, Counted> sections;
    std::ifstream file(results / "counted.tsv");
    for (std::string section; std::getline(file, section, '\t');) {
        Counted& counted = sections[section];
        file >> counted.requests >> counted.wakeUps >> counted.processor >> std::ws;
    }
    return sections;
}

} // namespace

void PlayCountedSections(const RunSize& run, const std::filesystem::path& results)
{
    RouterSession session(RouterSession::Transport::Simulation);
    Plan plan(results);
    {
        const RoleProcess instrument = BareInstrument();
        const RoleProcess pipeline = BarePipeline(instrument);
        PlayRoundTrips(plan, run, BarePipelineTrips, pipeline.Pipe(),
                       {{"pipeline", ThreadsOf(pipeline.Id())},
                        {"instrument", ThreadsOf(instrument.Id())},
                        {"client", {::GetCurrentThreadId()}}});
    }
    {
        const RoleProcess simulator = Simulator();
        const RunningRouter router(session);
        const std::string port = router.RegisterPort(1); // whose thread is one of those that are listed next
        PlayRoundTrips(plan, run, RouterTrips, port,
                       {{"router", ThreadsOf(router.Id())},
                        {"instrument", ThreadsOf(simulator.Id())},
                        {"client", {::GetCurrentThreadId()}}});
    }
    TraceUnwanted(TraceCalls, [&](const auto& calls) {
        plan.Play(UnwantedTraces, {{"tracer", {::GetCurrentThreadId()}}}, calls);
    });
    for (const IdleState& state : IdleStates) {
        PlayIdleState(plan, run, session, state);
    }
}

void AddCountedRows(Table& table, const std::filesystem::path& results)
{
    const std::map<std::string, Counted> counted = ReadCounted(results);
    table.Add({"requests to the Wine server for a routed round trip", "seven wake-ups and nothing else",
               counted.at(RouterTrips).requests, counted.at(BarePipelineTrips).requests, "requests", AtMost(0.78),
               ""});
    table.Add({"kernel calls of " + std::to_string(TraceCalls) + " trace calls that are not enabled", "",
               counted.at(UnwantedTraces).requests, std::nullopt, "calls", AtMost(0), ""});
    for (const IdleState& state : IdleStates) {
        const Counted& idle = counted.at(state.name);
        Demand(idle.processor >= 0, "the processor time of a router is not known");
        table.Add({std::string("wake-ups, ") + state.name, "the waits with a time in them", idle.wakeUps,
                   state.wakeUps, "/s", AtMost(1.03), ""});
        table.Add({std::string("processor, ") + state.name, "one processor", 100 * idle.processor, std::nullopt,
                   "%", Told, ""});
    }
}

} // namespace bench
