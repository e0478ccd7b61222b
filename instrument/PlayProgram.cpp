#include "instrument/PlayProgram.h"

#include "console/Console.h"
#include "console/Version.h"
#include "console/WholeFile.h"
#include "instrument/Lines.h"

#include <exception>
#include <iterator>
#include <utility>

namespace instrument {

namespace {

struct Options
{
    Script script;
    std::string readyEvent;
    std::string stopEvent;
    std::string expectFile;
    std::int64_t milliseconds = 0; // 0: without end
    std::int64_t requests = 0;     // 0: any number
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
        {"--for", true, StoreSeconds(options.milliseconds)},
        {"--requests", true, StoreNumber(options.requests, 1, INT64_MAX)},
        {"--ready-event", true, Store(options.readyEvent)},
        {"--stop-event", true, Store(options.stopEvent)},
        {"--script", true, [&options](const std::string& path) { return AddScriptFile(options.script, path); }},
        {"--do", true, [&options](const std::string& line) { return AddScriptLine(options.script, line); }},
        {"--firmware-expect", true, Store(options.expectFile)},
    };
    std::ranges::copy(program.switches, std::back_inserter(switches));
    return switches;
}

Endpoint::Limits LimitsOf(const Options& options)
{
    Endpoint::Limits limits;
    if (options.milliseconds != 0) {
        limits.time = std::chrono::milliseconds(options.milliseconds);
    }
    if (options.requests != 0) {
        limits.requests = static_cast<std::uint64_t>(options.requests);
    }
    return limits;
}

/// Prints what happens. Lines are gathered and printed once a pass.
class Printer
{
public:
    Observer observer;

    /// `serving`: said, and `ready` set, as soon as the router can find the instrument.
    Printer(const std::string& serving, const console::ReadySignal& ready, bool quiet)
    {
        if (!quiet) {
            observer.event = [this](const std::string& what) {
                const std::chrono::duration<double> time = console::Now() - m_start;
                m_lines += Format("%11.6f ", time.count()) + what + "\n";
            };
        }
        observer.pass = [this] {
            if (!m_lines.empty()) {
                console::Say(std::exchange(m_lines, {}));
            }
        };
        observer.served = [this, serving, &ready] {
            observer.Say(serving);
            observer.pass();
            ready.Set();
        };
    }
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;

private:
    const Time m_start = console::Now();
    std::string m_lines;
};

int Play(const PlayProgram& program, const Options& options)
{
    std::optional<Bytes> expected;
    if (!options.expectFile.empty()) {
        expected = WholeFile(options.expectFile);
        if (!expected) {
            return console::Fail(program.name, "'" + options.expectFile + "' can't be read",
                                 PlayProgram::ImageUnreadable);
        }
    }
    const PlayProgram::Place place = program.place();
    const console::StopSignal stop(options.stopEvent);
    const console::ReadySignal ready(options.readyEvent);
    const Printer printer(place.serving, ready, options.quiet);
    Engine engine(options.script, printer.observer, expected);
    const auto endpoint = program.makeEndpoint(engine, printer.observer, stop.Get());
    const Time start = console::Now();
    const Endpoint::End end = endpoint->Run(LimitsOf(options));
    printer.observer.pass();
    switch (end) {
    case Endpoint::End::Taken: return console::Fail(program.name, place.taken, PlayProgram::Taken);
    case Endpoint::End::Refused:
        return console::Fail(program.name, place.refused + " (" + endpoint->Failure() + ")", PlayProgram::Refused);
    default: break;
    }
    console::Say(SummaryOf(engine, console::Now() - start) + (end == Endpoint::End::Stopped ? "ended: stopped"
                                                              : end == Endpoint::End::TimeOver
                                                                  ? "ended: time over"
                                                                  : "ended: enough requests"));
    if (expected && engine.Firmware().match != FirmwareReport::Match::Same) {
        return console::Fail(program.name, "the expected firmware image did not arrive", PlayProgram::ImageWrong);
    }
    return PlayProgram::Good;
}

} // namespace

int Run(const PlayProgram& program, int count, wchar_t** arguments)
{
    try {
        Options options;
        const auto error = commandline::Parse(console::Arguments(count, arguments), SwitchesOf(program, options));
        if (options.help) {
            console::Say(HelpOf(program));
            return PlayProgram::Good;
        }
        if (options.version) {
            console::Say(console::VersionLine(program.name));
            return PlayProgram::Good;
        }
        return error ? console::Fail(program.name, *error + " (--help tells more)", console::UsageError)
                     : Play(program, options);
    } catch (const std::exception& fault) {
        return console::Fail(program.name, fault.what(), PlayProgram::Failed);
    }
}

} // namespace instrument
