// bench.exe: measures the router against what its users would have without it, side by side, and prints one table.
#include "bench/Roles.h"
#include "bench/Rows.h"
#include "console/CommandLine.h"

#include <fstream>
#include <functional>
#include <sstream>

namespace {

using bench::RunSize;
using bench::Table;

constexpr const char* Help = R"(usage: bench [switches]
  --quick             a few of everything: whether it runs, not how fast
  --only GROUP[,...]  wire, dispatch, trace, usb, start, trips, streams, ports, counted
  --results FOLDER    the rows as JSON go to bench.json there, after those of one-processor.json if it is there; with
                      server.log, which gets what the Wine server prints, its requests are counted into calls.txt
  --one-processor     only the round trips that want everything on one processor, which the caller sees to; as JSON
                      to one-processor.json
Registers the router of its own folder and removes the router's settings: for a Windows of its own only.
)";

struct Options
{
    RunSize run;
    std::string only;
    std::string results;
    bool oneProcessor = false;
    bool help = false;

    std::filesystem::path Result(const char* name) const
    {
        return std::filesystem::path(console::Wide(results)) / name;
    }
};

struct Group
{
    std::string name;
    std::function<void(Table&, const RunSize&)> measure;
};

std::vector<Group> GroupsOf(const Options& options)
{
    using namespace bench;
    if (options.oneProcessor) {
        return {{"trips", &AddOneProcessorRoundTripRows}};
    }
    const auto count = [&options](Table& table, const RunSize& run) {
        if (const auto log = options.Result("server.log"); std::filesystem::exists(log)) {
            AddCountedRows(table, run, log, options.Result("calls.txt"));
        }
    };
    return {{"wire", &AddDumpAndFramingRows},
            {"dispatch", &AddDispatchRows},
            {"trace", &AddTraceRows},
            {"usb", &AddUsbRows},
            {"start", &AddStartRows},
            {"trips", &AddRoundTripRows},
            {"streams", &AddStreamRows},
            {"ports", &AddScalingRows},
            {"counted", count}};
}

/// Keeps the groups that `only` names, all of them when it is empty.
std::optional<commandline::Error> Select(std::vector<Group>& groups, const std::string& only)
{
    std::vector<std::string> names;
    std::istringstream in(only);
    for (std::string name; std::getline(in, name, ',');) {
        if (!std::ranges::count(groups, name, &Group::name)) {
            return "unknown group '" + name + "'";
        }
        names.push_back(name);
    }
    std::erase_if(groups,
                  [&](const Group& group) { return !names.empty() && !std::ranges::count(names, group.name); });
    return std::nullopt;
}

std::optional<commandline::Error> Read(const std::vector<std::string>& arguments, Options& options)
{
    using namespace commandline;
    return Parse(arguments, {{"--quick", false, Set(options.run.quick)},
                             {"--only", true, Store(options.only)},
                             {"--results", true, Store(options.results)},
                             {"--one-processor", false, Set(options.oneProcessor)},
                             {"--help", false, Set(options.help)}});
}

/// Measures one group after the other. A group that fails is reported and makes the program fail; the others go
/// on.
int Run(const Options& options, const std::vector<Group>& groups)
{
    const std::filesystem::path oneProcessorRows = options.Result("one-processor.json");
    Table table;
    if (std::ifstream earlier(oneProcessorRows); earlier && !options.oneProcessor) {
        table.Continue(earlier);
    } else {
        Table::PrintHead();
    }
    int failed = 0;
    for (const Group& group : groups) {
        try {
            group.measure(table, options.run);
        } catch (const std::exception& fault) {
            ++failed;
            console::Say("FAILED: " + group.name + ": " + fault.what());
        }
    }
    if (!options.results.empty()) {
        std::ofstream(options.oneProcessor ? oneProcessorRows : options.Result("bench.json")) << table.Json();
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
        auto fault = Read(words, options);
        std::vector<Group> groups = GroupsOf(options);
        fault = fault ? fault : Select(groups, options.only);
        if (fault) {
            return console::Fail("bench", *fault + " (--help tells more)", console::UsageError);
        }
        if (options.help) {
            console::Say(Help);
            return 0;
        }
        return Run(options, groups);
    } catch (const std::exception& fault) {
        return console::Fail("bench", fault.what(), 1);
    }
}
