#include "bench/IdleStates.h"
#include "bench/Rows.h"
#include "bench/ServerLog.h"
#include "bench/TracerRig.h"
#include "trace/Trace.h"

#include <fstream>
#include <iomanip>

namespace bench {

namespace {

constexpr std::size_t MessageSize = 64;
constexpr int TraceCalls = 1000;

/// The command thread's look for an instrument that is not there. The sleep that follows is no request itself.
constexpr const char* LookForInstrument = "open_file_object";

std::uint64_t CountOf(const Requests& requests, const char* name)
{
    const auto found = requests.find(name);
    return found != requests.end() ? found->second : 0;
}

/// A part of the counted threads, with the name of its program.
struct Program
{
    std::string name;
    std::vector<DWORD> threads;
};

class CallList
{
public:
    explicit CallList(const std::filesystem::path& path) : m_file(path) {}

    /// Writes the requests of each thread per trip (or second), and returns the sum.
    double Write(const std::string& title, const std::map<DWORD, Requests>& counted,
                 const std::vector<Program>& programs, double per)
    {
        double sum = 0;
        m_file << title << '\n';
        for (const Program& program : programs) {
            for (const DWORD thread : program.threads) {
                if (const auto found = counted.find(thread); found != counted.end()) {
                    sum += WriteThread(program.name, thread, found->second, per);
                }
            }
        }
        m_file << "  together " << sum << "\n\n";
        return sum;
    }

private:
    double WriteThread(const std::string& program, DWORD thread, const Requests& requests, double per)
    {
        const double sum = static_cast<double>(Sum(requests)) / per;
        if (sum < 0.05) {
            return sum;
        }
        m_file << "  " << std::setw(10) << std::left << program << " thread " << std::hex << thread << std::dec
               << std::fixed << std::setprecision(2) << ": " << sum << " =";
        for (const auto& [name, count] : requests) {
            const double each = static_cast<double>(count) / per;
            if (each >= 0.01) {
                m_file << ' ' << name << ' ' << each;
            }
        }
        m_file << '\n';
        return sum;
    }

    std::ofstream m_file;
};

class Counting
{
public:
    Counting(const RunSize& run, const std::filesystem::path& serverLog, const std::filesystem::path& calls)
        : m_effort(run), m_log(serverLog), m_calls(calls)
    {
    }

    /// Requests for one round trip over that path.
    double RoundTrips(const std::string& name, PipeEnd& client, std::vector<Program> programs)
    {
        const std::vector<std::uint8_t> message(MessageSize, 'c');
        const std::size_t count = m_effort.Times(200);
        RoundTrip(client, message, WarmUps, nullptr);
        m_log.Begin(name);
        RoundTrip(client, message, count, nullptr);
        m_log.End(name);
        programs.push_back({"client", {::GetCurrentThreadId()}});
        return m_calls.Write(name + ", requests for one round trip", m_log.Counted(name), programs,
                             static_cast<double>(count));
    }

    struct Idleness
    {
        double wakeUps = 0;   // of the router's threads in a second
        double processor = 0; // percent of one
    };

    Idleness Idle(RouterSession& session, IdleState state)
    {
        const IdleRouter idle(session, state);
        const std::vector<DWORD> threads = ThreadsOf(idle.Id());
        const std::string name = "idle-" + std::to_string(static_cast<int>(state));
        ::Sleep(500); // for what the start leaves to be done
        const double before = m_log.ProcessorSeconds(threads.front());
        const Stopwatch watch;
        m_log.Begin(name);
        ::Sleep(static_cast<DWORD>(m_effort.Time(std::chrono::milliseconds(5000)).count()));
        m_log.End(name);
        const double seconds = watch.Seconds();
        const double processor = m_log.ProcessorSeconds(threads.front()) - before;
        const std::map<DWORD, Requests> counted = m_log.Counted(name);
        m_calls.Write(std::string(IdleRouter::NameOf(state)) + ", requests in a second", counted,
                      {{"router", threads}}, seconds);
        std::uint64_t woken = 0;
        for (const DWORD thread : threads) {
            if (const auto found = counted.find(thread); found != counted.end()) {
                woken += CountOf(found->second, Slept) + CountOf(found->second, LookForInstrument);
            }
        }
        return {static_cast<double>(woken) / seconds, 100 * processor / seconds};
    }

    /// Requests of calls that nobody wants.
    std::uint64_t UnwantedTraces()
    {
        const TracerRig rig;
        m_log.Begin("unwanted");
        for (int i = 0; i < TraceCalls; ++i) {
            Trace(TracerRig::UnwantedChannel, trace::Usb, "%d", i);
        }
        m_log.End("unwanted");
        std::map<DWORD, Requests> counted = m_log.Counted("unwanted");
        return Sum(counted[::GetCurrentThreadId()]);
    }

private:
    const RunSize& m_effort;
    ServerLog m_log;
    CallList m_calls;
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
    const Instrument simulator(SimulatorPipe, true);
    RunningRouter router(session);
    const auto client = router.OpenPort(3, 1);
    const double routed = counting.RoundTrips(
        "router", *client, {{"router", ThreadsOf(router.Id())}, {"instrument", ThreadsOf(simulator.Id())}});
    client->Close();
    table.Add({"requests to the Wine server for a routed round trip",
               "seven wake-ups and nothing else",
               {routed, "requests"},
               Quantity{barePipeline, "requests"},
               Bound::AtMost,
               1.5,
               ""});
}

} // namespace

void AddCountedRows(Table& table, const RunSize& run, RouterSession& session,
                    const std::filesystem::path& serverLog, const std::filesystem::path& calls)
{
    Counting counting(run, serverLog, calls);
    AddRoundTripRow(table, counting, session);
    table.Add({"kernel calls of " + std::to_string(TraceCalls) + " trace calls that nobody wants",
               "",
               {static_cast<double>(counting.UnwantedTraces()), "calls"},
               std::nullopt,
               Bound::AtMost,
               0,
               ""});
    for (const IdleState state : AllIdleStates) {
        const Counting::Idleness idleness = counting.Idle(session, state);
        table.Add({std::string("wake-ups, ") + IdleRouter::NameOf(state),
                   "the waits with a time in them",
                   {idleness.wakeUps, "/s"},
                   Quantity{IdleRouter::StatedWakeUps(state), "/s"},
                   Bound::AtMost,
                   1.03,
                   ""});
        table.Add({std::string("processor, ") + IdleRouter::NameOf(state),
                   "one processor",
                   {idleness.processor, "%"},
                   std::nullopt,
                   Bound::None,
                   0,
                   ""});
    }
}

} // namespace bench
