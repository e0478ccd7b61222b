// Rows that are counted instead of timed, from the Wine server's log.
#include "bench/Ends.h"
#include "bench/Rows.h"
#include "bench/ServerLog.h"
#include "tests/support/ProcessUsage.h"

namespace bench {

namespace {

constexpr std::size_t MessageSize = 64;
constexpr int Ports = 8;

/// The command thread's look for an instrument that is not there. The sleep that follows is no request itself.
constexpr const char* LookForInstrument = "open_file_object";

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
    {"8 ports, nobody connected", true, false, Tray + CommandThread + PortTimeouts},
    {"8 ports, no instrument", false, false, Tray + Ports + 100},
}};

/// Requests for one round trip to that pipe.
double RoundTripRequests(const RunSize& run, ServerLog& log, const std::string& pipe,
                         std::vector<Program> programs)
{
    Client client(pipe);
    const std::vector<std::uint8_t> message(MessageSize, 'c');
    const auto trips = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            client.RoundTrip(message);
        }
    };
    trips(WarmUps);
    const std::string title = std::string(programs.front().name) + ", requests for one round trip";
    programs.push_back({"client", {::GetCurrentThreadId()}});
    const std::size_t count = run.Times(200);
    return Sum(log.Count(title, programs, static_cast<double>(count), [&] { trips(count); }));
}

void AddRoundTripRow(Table& table, const RunSize& run, RouterSession& session, ServerLog& log)
{
    double bare = 0;
    {
        const RoleProcess instrument = BareInstrument();
        const RoleProcess pipeline = BarePipeline(instrument);
        bare = RoundTripRequests(
            run, log, pipeline.Pipe(),
            {{"barePipeline", ThreadsOf(pipeline.Id())}, {"instrument", ThreadsOf(instrument.Id())}});
    }
    const RoleProcess simulator = Simulator();
    const RunningRouter router(session);
    const std::string port = router.RegisterPort(1); // whose thread is one of those that are listed next
    const double routed = RoundTripRequests(
        run, log, port, {{"router", ThreadsOf(router.Id())}, {"instrument", ThreadsOf(simulator.Id())}});
    table.Add({"requests to the Wine server for a routed round trip", "seven wake-ups and nothing else", routed,
               bare, "requests", AtMost(1.5), ""});
}

void AddIdleRows(Table& table, const RunSize& run, RouterSession& session, ServerLog& log, const IdleState& state)
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
    const Program program{"router", ThreadsOf(router.Id())};
    const DWORD firstThread = program.threads.front();
    ::Sleep(500); // for what the start leaves to be done
    const auto time = run.Time(std::chrono::milliseconds(5000));
    const double seconds = std::chrono::duration<double>(time).count();
    const double before = log.ProcessorSeconds(firstThread);
    Requests requests = log.Count(std::string(state.name) + ", requests in a second", {program}, seconds,
                                  [&] { ::Sleep(static_cast<DWORD>(time.count())); });
    const double processor = log.ProcessorSeconds(firstThread) - before;
    table.Add({std::string("wake-ups, ") + state.name, "the waits with a time in them",
               requests[Slept] + requests[LookForInstrument], state.wakeUps, "/s", AtMost(1.03), ""});
    table.Add({std::string("processor, ") + state.name, "one processor", 100 * processor / seconds, std::nullopt,
               "%", Told, ""});
}

} // namespace

void AddCountedRows(Table& table, const RunSize& run, const std::filesystem::path& serverLog,
                    const std::filesystem::path& calls)
{
    RouterSession session(RouterSession::Transport::Simulation);
    ServerLog log(serverLog, calls);
    AddRoundTripRow(table, run, session, log);
    AddCountedTraceRow(table, log);
    for (const IdleState& state : IdleStates) {
        AddIdleRows(table, run, session, log, state);
    }
}

} // namespace bench
