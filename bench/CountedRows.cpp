// Rows that are counted instead of timed, from the Wine server's log.
#include "bench/DataPath.h"
#include "bench/Rows.h"
#include "bench/ServerLog.h"
#include "bench/Tracer.h"
#include "tests/support/UniqueName.h"
#include "trace/Trace.h"

#include <fstream>
#include <iomanip>
#include <numeric>

namespace bench {

namespace {

constexpr std::size_t MessageSize = 64;
constexpr int TraceCalls = 1000;
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

/// A part of the counted threads, with the name of its program.
struct Program
{
    const char* name;
    std::vector<DWORD> threads;
};

class Counting
{
public:
    Counting(const RunSize& run, const std::filesystem::path& serverLog, const std::filesystem::path& calls)
        : m_run(run), m_log(serverLog), m_calls(calls)
    {
    }

    /// Requests for one round trip over that path.
    double RoundTrips(const char* name, PipeEnd& client, std::vector<Program> programs)
    {
        const std::vector<std::uint8_t> message(MessageSize, 'c');
        const std::size_t count = m_run.Times(200);
        RoundTrip(client, message, WarmUps, nullptr);
        const auto counted = m_log.During([&] { RoundTrip(client, message, count, nullptr); });
        programs.push_back({"client", {::GetCurrentThreadId()}});
        return List(std::string(name) + ", requests for one round trip", counted, programs,
                    static_cast<double>(count));
    }

    void AddIdleRows(Table& table, RouterSession& session, const IdleState& state)
    {
        const auto simulator = state.hasInstrument ? std::make_unique<Instrument>() : nullptr;
        RunningRouter router(session);
        std::vector<std::unique_ptr<PipeEnd>> clients;
        for (ULONG port = 1; port <= Ports; ++port) {
            if (state.hasClients) {
                clients.push_back(router.OpenPort(3, port));
            } else {
                session.RegisterPort(3, port, support::UniqueName(L"BenchIdle"));
            }
        }
        const std::vector<DWORD> threads = ThreadsOf(router.Id());
        ::Sleep(500); // for what the start leaves to be done
        const double before = m_log.ProcessorSeconds(threads.front());
        const Stopwatch watch;
        auto counted = m_log.During(
            [&] { ::Sleep(static_cast<DWORD>(m_run.Time(std::chrono::milliseconds(5000)).count())); });
        const double seconds = watch.Seconds();
        const double processor = m_log.ProcessorSeconds(threads.front()) - before;
        List(std::string(state.name) + ", requests in a second", counted, {{"router", threads}}, seconds);
        const std::uint64_t woken = std::accumulate(
            threads.begin(), threads.end(), std::uint64_t{0}, [&](std::uint64_t sum, DWORD thread) {
                return sum + counted[thread][Slept] + counted[thread][LookForInstrument];
            });
        table.Add({std::string("wake-ups, ") + state.name, "the waits with a time in them",
                   static_cast<double>(woken) / seconds, state.wakeUps, "/s", AtMost(1.03), ""});
        table.Add({std::string("processor, ") + state.name, "one processor", 100 * processor / seconds,
                   std::nullopt, "%", Told, ""});
    }

    /// Requests of calls that nobody wants.
    std::uint64_t UnwantedTraces() const
    {
        const Tracer tracer;
        auto counted = m_log.During([] {
            for (int i = 0; i < TraceCalls; ++i) {
                Trace(Tracer::UnwantedChannel, trace::Usb, "%d", i);
            }
        });
        return Sum(counted[::GetCurrentThreadId()]);
    }

private:
    /// Lists the requests of each thread per trip (or second), and returns the sum.
    double List(const std::string& title, const std::map<DWORD, Requests>& counted,
                const std::vector<Program>& programs, double per)
    {
        double sum = 0;
        m_calls << title << '\n';
        for (const Program& program : programs) {
            for (const DWORD thread : program.threads) {
                if (const auto found = counted.find(thread); found != counted.end()) {
                    sum += static_cast<double>(Sum(found->second)) / per;
                    ListThread(program.name, thread, found->second, per);
                }
            }
        }
        m_calls << "  together " << sum << "\n\n";
        return sum;
    }

    void ListThread(const char* program, DWORD thread, const Requests& requests, double per)
    {
        const double sum = static_cast<double>(Sum(requests)) / per;
        if (sum < 0.05) {
            return;
        }
        m_calls << "  " << std::setw(10) << std::left << program << " thread " << std::hex << thread << std::dec
                << std::fixed << std::setprecision(2) << ": " << sum << " =";
        for (const auto& [name, count] : requests) {
            const double each = static_cast<double>(count) / per;
            if (each >= 0.01) {
                m_calls << ' ' << name << ' ' << each;
            }
        }
        m_calls << '\n';
    }

    const RunSize& m_run;
    const ServerLog m_log;
    std::ofstream m_calls;
};

void AddRoundTripRow(Table& table, Counting& counting, RouterSession& session)
{
    double barePipeline = 0;
    {
        BarePipelinePath path;
        barePipeline = counting.RoundTrips(
            "barePipeline", path.Client(),
            {{"barePipeline", ThreadsOf(path.Id())}, {"instrument", ThreadsOf(path.InstrumentId())}});
    }
    const Instrument simulator;
    RunningRouter router(session);
    const auto client = router.OpenPort(3, 1);
    const double routed = counting.RoundTrips(
        "router", *client, {{"router", ThreadsOf(router.Id())}, {"instrument", ThreadsOf(simulator.Id())}});
    client->Close();
    table.Add({"requests to the Wine server for a routed round trip", "seven wake-ups and nothing else", routed,
               barePipeline, "requests", AtMost(1.5), ""});
}

} // namespace

void AddCountedRows(Table& table, const RunSize& run, RouterSession& session,
                    const std::filesystem::path& serverLog, const std::filesystem::path& calls)
{
    Counting counting(run, serverLog, calls);
    AddRoundTripRow(table, counting, session);
    table.Add({"kernel calls of " + std::to_string(TraceCalls) + " trace calls that nobody wants", "",
               static_cast<double>(counting.UnwantedTraces()), std::nullopt, "calls", AtMost(0), ""});
    for (const IdleState& state : IdleStates) {
        counting.AddIdleRows(table, session, state);
    }
}

} // namespace bench
