// bench.exe: measures the router against what its users would have without it, side by side, and prints one table.
#include "bench/Roles.h"
#include "bench/Rows.h"
#include "bench/WireRows.h"
#include "console/CommandLine.h"
#include "console/Console.h"
#include "tests/support/RouterSession.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace {

using bench::RunSize;
using bench::Table;
using Transport = RouterSession::Transport;

constexpr const char* Help = R"(usage: bench [switches]
  --quick             a few of everything: whether it runs, not how fast
  --only GROUP[,...]  wire, dispatch, trace, usb, start, trips, streams, ports, counted
  --json FILE         the rows as JSON
  --one-processor     only the round trips that want everything on one processor, which the caller sees to
  --continue FILE     the JSON of such a run: the table goes on from there
  --server-log FILE   what the Wine server prints: needed to count its requests
  --calls FILE        the counted requests, thread by thread
Registers the router of its own folder and removes the router's settings: for a Windows of its own only.
)";

struct Options
{
    RunSize run;
    std::vector<std::string> only;
    std::string json;
    bool oneProcessor = false;
    std::string earlier;
    std::string serverLog;
    std::string calls = "bench-calls.txt";
    bool help = false;
};

struct Group
{
    std::string name;
    std::function<void(Table&, const RunSize&)> measure;
};

template <class Measure>
Group WithRouter(const char* name, Transport transport, Measure measure)
{
    return {name, [=](Table& table, const RunSize& run) {
                RouterSession session(transport);
                measure(table, run, session);
            }};
}

std::vector<Group> GroupsOf(const Options& options)
{
    using namespace bench;
    if (options.oneProcessor) {
        return {WithRouter("trips", Transport::Simulation, &AddOneProcessorRoundTripRows)};
    }
    const auto count = [&options](Table& table, const RunSize& run, RouterSession& session) {
        if (!options.serverLog.empty()) {
            AddCountedRows(table, run, session, console::Wide(options.serverLog), console::Wide(options.calls));
        }
    };
    return {{"wire", &AddDumpAndFramingRows},
            {"dispatch", &AddDispatchRows},
            {"trace", &AddTraceRows},
            WithRouter("usb", Transport::Usb, &AddUsbRows),
            WithRouter("start", Transport::Simulation, &AddStartRows),
            WithRouter("trips", Transport::Simulation, &AddRoundTripRows),
            WithRouter("streams", Transport::Simulation, &AddStreamRows),
            WithRouter("ports", Transport::Simulation, &AddScalingRows),
            WithRouter("counted", Transport::Simulation, count)};
}

std::optional<commandline::Error> ReadGroups(const std::string& value, Options& options)
{
    std::istringstream groups(value);
    for (std::string group; std::getline(groups, group, ',');) {
        if (!std::ranges::count(GroupsOf({}), group, &Group::name)) {
            return "unknown group '" + group + "'";
        }
        options.only.push_back(group);
    }
    return std::nullopt;
}

std::optional<commandline::Error> Read(const std::vector<std::string>& arguments, Options& options)
{
    using namespace commandline;
    return Parse(arguments,
                 {{"--quick", false, Set(options.run.quick)},
                  {"--only", true, [&options](const std::string& value) { return ReadGroups(value, options); }},
                  {"--json", true, Store(options.json)},
                  {"--one-processor", false, Set(options.oneProcessor)},
                  {"--continue", true, Store(options.earlier)},
                  {"--server-log", true, Store(options.serverLog)},
                  {"--calls", true, Store(options.calls)},
                  {"--help", false, Set(options.help)}});
}

/// Measures one group after the other. A group that fails is reported and makes the program fail; the others go
/// on.
int Run(const Options& options)
{
    Table table;
    table.announce = [](const std::string& line) { console::Say(line); };
    if (options.earlier.empty()) {
        console::Say(Table::Head());
    } else {
        std::ifstream json(std::filesystem::path(console::Wide(options.earlier)));
        table.Continue(json);
    }
    int failed = 0;
    for (const Group& group : GroupsOf(options)) {
        try {
            if (options.only.empty() || std::ranges::count(options.only, group.name)) {
                group.measure(table, options.run);
            }
        } catch (const std::exception& fault) {
            ++failed;
            console::Say("FAILED: " + group.name + ": " + fault.what());
        }
    }
    if (!options.json.empty()) {
        std::ofstream(std::filesystem::path(console::Wide(options.json))) << table.Json();
    }
    if (!options.oneProcessor) {
        console::Say(std::to_string(table.RowCount()) + " rows, " + std::to_string(table.MissedTargets()) +
                     " targets missed, " + std::to_string(failed) + " groups failed");
    }
    return failed == 0 ? 0 : 1;
}

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
        return Run(options);
    } catch (const std::exception& fault) {
        return console::Fail("bench", fault.what(), 1);
    }
}
