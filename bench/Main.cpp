// bench.exe: measures the router against what its users would have without it, side by side, and prints one table.
#include "bench/Roles.h"
#include "bench/Rows.h"
#include "console/CommandLine.h"

#include <functional>
#include <sstream>

namespace {

using bench::RunSize;
using bench::Table;

constexpr const char* Help = R"(usage: bench [switches]
  --quick             a few of everything: whether it runs, not how fast
  --only GROUP[,...]  wire, dispatch, trace, usb, start, trips, streams, ports; and for bench/measure, which provides
                      what they want: one-processor, plan, counted
  --results FOLDER    the rows are added to rows.tsv there
Registers the router of its own folder and removes the router's settings: for a Windows of its own only.
)";

struct Options
{
    RunSize run;
    std::string only;
    std::string results;
    bool help = false;
};

struct Group
{
    std::string name;
    std::function<void(Table&, const RunSize&)> measure;
    bool onlyByName = false;
};

std::vector<Group> GroupsIn(const std::filesystem::path& results)
{
    using namespace bench;
    return {{"wire", &AddDumpAndFramingRows},
            {"dispatch", &AddDispatchRows},
            {"trace", &AddTraceRows},
            {"usb", &AddUsbRows},
            {"start", &AddStartRows},
            {"trips", &AddRoundTripRows},
            {"streams", &AddStreamRows},
            {"ports", &AddScalingRows},
            {"one-processor", &AddOneProcessorRoundTripRows, true},
            {"plan", [=](Table&, const RunSize& run) { PlayCountedSections(run, results); }, true},
            {"counted", [=](Table& table, const RunSize&) { AddCountedRows(table, results); }, true}};
}

std::optional<commandline::Error> Read(const std::vector<std::string>& arguments, Options& options)
{
    using namespace commandline;
    const auto error = Parse(arguments, {{"--quick", false, Set(options.run.quick)},
                                         {"--only", true, Store(options.only)},
                                         {"--results", true, Store(options.results)},
                                         {"--help", false, Set(options.help)}});
    std::istringstream names(options.only);
    for (std::string name; !error && std::getline(names, name, ',');) {
        if (!std::ranges::count(GroupsIn({}), name, &Group::name)) {
            return "unknown group '" + name + "'";
        }
    }
    return error;
}

/// Measures one group after the other. A group that fails is reported and makes the program fail; the others go
/// on.
int Run(const Options& options)
{
    const std::filesystem::path results(console::Wide(options.results));
    const std::string only = "," + options.only + ",";
    Table table(results);
    int failed = 0;
    for (const Group& group : GroupsIn(results)) {
        const bool isNamed = only.find("," + group.name + ",") != only.npos;
        try {
            if (isNamed || (options.only.empty() && !group.onlyByName)) {
                group.measure(table, options.run);
            }
        } catch (const std::exception& fault) {
            ++failed;
            console::Say("FAILED: " + group.name + ": " + fault.what());
        }
    }
    if (results.empty()) {
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
