// bench.exe: measures the router against what its users would have without it, side by side, and prints one table.
#include "bench/Roles.h"
#include "bench/Rows.h"
#include "bench/WireRows.h"
#include "console/CommandLine.h"
#include "console/Console.h"
#include "tests/support/RouterSession.h"

#include <fstream>
#include <functional>
#include <set>
#include <sstream>

namespace {

constexpr const char* Help = R"(usage: bench [switches]
  --quick             a few of everything: whether it runs, not how fast
  --only GROUP[,...]  wire, dispatch, trace, start, trips, streams, ports, usb, counted
  --json FILE         the rows as JSON
  --one-processor     only the round trips that want everything on one processor, which the caller sees to
  --continue FILE     the JSON of such a run: the table goes on from there
  --server-log FILE   what the Wine server prints: needed to count its requests
  --calls FILE        the counted requests, thread by thread
Registers the router of its own folder and removes the router's settings: for a Windows of its own only.
)";

const std::set<std::string> Groups{"wire",  "dispatch", "trace", "usb",    "start",
                                   "trips", "streams",  "ports", "counted"};

struct Options
{
    bench::RunSize run;
    std::set<std::string> only;
    std::string json;
    bool oneProcessor = false;
    std::string earlier;
    std::string serverLog;
    std::string calls = "bench-calls.txt";
    bool help = false;
};

std::optional<commandline::Error> Read(const std::vector<std::string>& arguments, Options& options)
{
    return commandline::Parse(arguments, {{"--quick", false, commandline::Set(options.run.quick)},
                                          {"--only", true,
                                           [&options](const std::string& value) {
                                               std::istringstream groups(value);
                                               for (std::string group; std::getline(groups, group, ',');) {
                                                   if (!Groups.contains(group)) {
                                                       return std::optional("unknown group '" + group + "'");
                                                   }
                                                   options.only.insert(group);
                                               }
                                               return std::optional<commandline::Error>();
                                           }},
                                          {"--json", true, commandline::Store(options.json)},
                                          {"--one-processor", false, commandline::Set(options.oneProcessor)},
                                          {"--continue", true, commandline::Store(options.earlier)},
                                          {"--server-log", true, commandline::Store(options.serverLog)},
                                          {"--calls", true, commandline::Store(options.calls)},
                                          {"--help", false, commandline::Set(options.help)}});
}

/// Measures one group after the other. A group that fails is told and makes the program fail; the others go on.
class Run
{
public:
    explicit Run(const Options& options) : m_options(options)
    {
        m_table.announce = [](const std::string& line) { console::Say(line); };
        if (m_options.earlier.empty()) {
            console::Say(bench::Table::Head());
        } else {
            std::ifstream json(std::filesystem::path(console::Wide(m_options.earlier)));
            m_table.Continue(json);
        }
    }

    void OnOneProcessor()
    {
        WithRouter("trips", RouterSession::Transport::Simulation, &bench::AddOneProcessorRoundTripRows);
    }

    void All()
    {
        const bench::RunSize& run = m_options.run;
        Group("wire", [&] { AddDumpAndFramingRows(m_table, run); });
        Group("dispatch", [&] { AddDispatchRows(m_table, run); });
        Group("trace", [&] { AddTraceRows(m_table, run); });
        WithRouter("usb", RouterSession::Transport::Usb, &bench::AddUsbRows);
        WithRouter("start", RouterSession::Transport::Simulation, &bench::AddStartRows);
        WithRouter("trips", RouterSession::Transport::Simulation, &bench::AddRoundTripRows);
        WithRouter("streams", RouterSession::Transport::Simulation, &bench::AddStreamRows);
        WithRouter("ports", RouterSession::Transport::Simulation, &bench::AddScalingRows);
        if (!m_options.serverLog.empty()) {
            WithRouter("counted", RouterSession::Transport::Simulation,
                       [this](bench::Table& table, const bench::RunSize& measure, RouterSession& session) {
                           AddCountedRows(table, measure, session, console::Wide(m_options.serverLog),
                                          console::Wide(m_options.calls));
                       });
        }
    }

    bool Finish() const
    {
        if (!m_options.json.empty()) {
            std::ofstream(std::filesystem::path(console::Wide(m_options.json))) << m_table.Json();
        }
        if (!m_options.oneProcessor) {
            console::Say(std::to_string(m_table.RowCount()) + " rows, " + std::to_string(m_table.MissedTargets()) +
                         " targets missed, " + std::to_string(m_failed) + " groups failed");
        }
        return m_failed == 0;
    }

private:
    void Group(const char* name, const std::function<void()>& measure)
    {
        if (!m_options.only.empty() && !m_options.only.contains(name)) {
            return;
        }
        try {
            measure();
        } catch (const std::exception& fault) {
            ++m_failed;
            console::Say(std::string("FAILED: ") + name + ": " + fault.what());
        }
    }

    void WithRouter(const char* name, RouterSession::Transport transport,
                    const std::function<void(bench::Table&, const bench::RunSize&, RouterSession&)>& measure)
    {
        Group(name, [&] {
            RouterSession session(transport);
            measure(m_table, m_options.run, session);
        });
    }

    const Options& m_options;
    bench::Table m_table;
    int m_failed = 0;
};

} // namespace

int wmain(int count, wchar_t** arguments)
{
    try {
        const std::vector<std::string> words = console::Arguments(count, arguments);
        if (!words.empty() && words.front() == "--role") {
            return bench::PlayRole(words);
        }
        Options options;
        if (const auto fault = Read(words, options)) {
            return console::Fail("bench", *fault + " (--help tells more)", console::UsageError);
        }
        if (options.help) {
            console::Say(Help);
            return 0;
        }
        Run run(options);
        if (options.oneProcessor) {
            run.OnOneProcessor();
        } else {
            run.All();
        }
        return run.Finish() ? 0 : 1;
    } catch (const std::exception& fault) {
        return console::Fail("bench", fault.what(), 1);
    }
}
