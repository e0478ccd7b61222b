#include "tools/PlayInstrument/PlayProgram.h"

#include "console/Console.h"
#include "console/Format.h"
#include "console/Version.h"
#include "console/WholeFile.h"

#include <array>
#include <exception>
#include <sstream>
#include <utility>

namespace instrument {

namespace {

struct Options
{
    Script script;
    Endpoint::Limits limits;
    std::string readyEvent;
    std::string stopEvent;
    std::string expectFile;
    bool quiet = false;
    bool help = false;
    bool version = false;
};

std::string HelpOf(const PlayProgram& program)
{
    return program.help + R"(Running:
  --for SECONDS           end after this time
  --requests N            end after N requests, once all answers that are due are written
  --quiet                 no lines, only the summary
  --ready-event NAME      set this named event as soon as the router can find the instrument
  --stop-event NAME       end when this named event is set, as on Ctrl+C and Ctrl+Break
)" + program.switchHelp +
           R"(  --help                  this text
  --version               the version

What the instrument does (in the order given; the language is below):
  --script FILE           lines of the script language
  --do LINE               one line of it
  --firmware-expect FILE  compare a downloaded image with this file

Exit codes:
  0  ended as asked
  1  failed for a reason that no other code says
  2  wrong command line or script
)" + program.exitCodeHelp +
           R"(  5  the file of --firmware-expect can't be read
  6  with --firmware-expect: no image came whole, or the last one is not that file

)" + ScriptHelp();
}

std::optional<commandline::Error> AddScriptFile(Script& script, const std::string& path)
{
    const auto bytes = WholeFile(path);
    if (!bytes) {
        return "'" + path + "' can't be read";
    }
    const auto error = AddScriptText(script, std::string(bytes->begin(), bytes->end()));
    return error ? std::optional(path + ", " + *error) : std::nullopt;
}

std::vector<commandline::Switch> SwitchesOf(const PlayProgram& program, Options& options)
{
    using namespace commandline;
    std::vector<Switch> switches = {
        {"--help", false, Set(options.help)},
        {"--version", false, Set(options.version)},
        {"--quiet", false, Set(options.quiet)},
        {"--for", true, StoreSeconds(options.limits.milliseconds)},
        {"--requests", true, StoreNumber(options.limits.requests, 1, INT64_MAX)},
        {"--ready-event", true, Store(options.readyEvent)},
        {"--stop-event", true, Store(options.stopEvent)},
        {"--script", true, [&options](const std::string& path) { return AddScriptFile(options.script, path); }},
        {"--do", true, [&options](const std::string& line) { return AddScriptLine(options.script, line); }},
        {"--firmware-expect", true, Store(options.expectFile)},
    };
    switches.insert(switches.end(), program.switches.begin(), program.switches.end());
    return switches;
}

/// The counters as a few lines, and what has ended the program.
std::string SummaryOf(const Engine& engine, Time running, Endpoint::End end)
{
    const Counters& counted = engine.Counted();
    std::ostringstream text;
    text << "summary: " << console::Format("%.3f", std::chrono::duration<double>(running).count()) << " s, "
         << counted.connections << " connections, vanished " << counted.vanished << " times\n"
         << "  received: " << counted.requests << " requests, " << counted.controlPackets << " control packets, "
         << counted.firmwareMessages << " firmware messages, " << counted.otherPackets << " others, "
         << counted.bytesReceived << " bytes\n"
         << "  faults of the router: " << counted.numberGaps << " number gaps, " << counted.wrongChecksums
         << " wrong checksums, " << counted.garbageReceived << " bytes outside packets\n"
         << "  sent: " << counted.answers << " answers, " << counted.unsolicited << " unsolicited, "
         << counted.bytesSent << " bytes\n";
    if (engine.Firmware().prepares != 0) {
        text << "  " << engine.Firmware().Line() << "; " << engine.Firmware().downloads
             << " downloads came whole\n";
    }
    static constexpr std::array<const char*, 3> ends = {"stopped", "time over", "enough requests"};
    text << "ended: " << ends[static_cast<std::size_t>(end)];
    return text.str();
}

int Play(const PlayProgram& program, const Options& options, const std::optional<Bytes>& expected)
{
    const console::StopSignal stop(options.stopEvent);
    const console::ReadySignal ready(options.readyEvent);
    const Time start = console::Now();
    std::string lines; // gathered, printed once a pass
    const auto gather = [&](const std::string& what) {
        const std::chrono::duration<double> time = console::Now() - start;
        lines += console::Format("%11.6f ", time.count()) + what + "\n";
    };
    const auto print = [&lines] {
        if (!lines.empty()) {
            console::Say(std::exchange(lines, {}));
        }
    };
    Engine engine(options.script, options.quiet ? Listener() : gather, expected);
    const PlayProgram::Place place = program.place(engine, stop.Get());
    const auto served = [&] {
        engine.Say(place.serving);
        print(); // the line comes before the signal
        ready.Set();
    };
    const Endpoint::End end = place.endpoint->Run(options.limits, served, print);
    if (end == Endpoint::End::Taken) {
        return console::Fail(program.name, place.taken, PlayProgram::Taken);
    }
    if (end == Endpoint::End::Refused) {
        return console::Fail(program.name, place.refused + " (" + place.endpoint->Failure() + ")",
                             PlayProgram::Refused);
    }
    console::Say(SummaryOf(engine, console::Now() - start, end));
    const bool arrived = !expected || engine.Firmware().match == FirmwareReport::Match::Same;
    return arrived
             ? PlayProgram::Good
             : console::Fail(program.name, "the expected firmware image did not arrive", PlayProgram::ImageWrong);
}

} // namespace

int Run(const PlayProgram& program, int count, wchar_t** arguments)
{
    try {
        Options options;
        const auto error = commandline::Parse(console::Arguments(count, arguments), SwitchesOf(program, options));
        if (options.help || options.version) {
            console::Say(options.help ? HelpOf(program) : console::VersionLine(program.name));
            return PlayProgram::Good;
        }
        if (error) {
            return console::Fail(program.name, *error + " (--help tells more)", console::UsageError);
        }
        const bool expects = !options.expectFile.empty();
        const auto expected = expects ? WholeFile(options.expectFile) : std::nullopt;
        return expects && !expected ? console::Fail(program.name, "'" + options.expectFile + "' can't be read",
                                                    PlayProgram::ImageUnreadable)
                                    : Play(program, options, expected);
    } catch (const std::exception& fault) {
        return console::Fail(program.name, fault.what(), PlayProgram::Failed);
    }
}

} // namespace instrument
