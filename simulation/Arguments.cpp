#include "simulation/Arguments.h"

#include <cstdlib>
#include <string_view>

namespace sim {

const char* const HelpText =
    R"(simulate: runs the router's core in a simulated Windows, a seed a run

  --seeds N                 N seeds (default 1000)
  --from K                  beginning with seed K (default 1)
  --minutes M               for so long, however many seeds that are
  --seed K                  one seed
  --trace                   with --seed: prints every event
  --faults none|some|all    injected faults: calls that fail, memory that is refused (default some)
  --requests N              at least so many requests in each run (default 100)
  --fill BYTE               what fresh memory and stacks hold, 1 to 255
  --hashes                  prints the hash of each seed
  --switches                fails unless every switch of Windows was taken both ways
  --quiet                   no progress

  --tracer                  the tracer by itself, a seed a run: threads that trace, its files, a disk that fails

  --transfers               usb/ by itself: direct and buffered transfers, aborted at any moment, and a cable
  --replies                 the reply path by itself, read from a pipe by a thread

  --each-call               a scripted session, repeated with each of its calls failing once in each documented way
  --path pipe|usb           its way to the instrument (default: both, one after the other)
  --call N --error E        only with the Nth call failing in the Eth way; --trace prints it

  --unplug                  a cable that is pulled again and again, and how long clients wait for an answer then
  --hours H --every S       for H hours of virtual time (default 24), every S seconds (default 600)
)";

namespace {

bool ParseNumber(const char* text, std::uint64_t& number)
{
    char* end = nullptr;
    number = std::strtoull(text, &end, 10);
    return *text >= '0' && *text <= '9' && *end == '\0';
}

bool ParseFaults(std::string_view text, FaultLevel& level)
{
    if (text == "none") {
        level = FaultLevel::None;
    } else if (text == "some") {
        level = FaultLevel::Some;
    } else if (text == "all") {
        level = FaultLevel::All;
    } else {
        return false;
    }
    return true;
}

bool ParseFlag(std::string_view word, Arguments& arguments)
{
    if (word == "--trace") {
        return arguments.prints = true;
    }
    if (word == "--hashes") {
        return arguments.printsHashes = true;
    }
    if (word == "--switches") {
        return arguments.countsMustBeWhole = true;
    }
    if (word == "--quiet") {
        return arguments.quiet = true;
    }
    if (word == "--each-call") {
        return arguments.eachCall = true;
    }
    if (word == "--unplug") {
        return arguments.unplugs = true;
    }
    if (word == "--tracer") {
        arguments.subject = Subject::Tracer;
        return true;
    }
    if (word == "--transfers") {
        arguments.subject = Subject::Transfers;
        return true;
    }
    if (word == "--replies") {
        arguments.subject = Subject::Replies;
        return true;
    }
    return (word == "--help" || word == "-h") && (arguments.help = true);
}

/// Whether the word is known; `good` tells whether its value is.
bool ParseModeValue(std::string_view word, const char* value, Arguments& arguments, bool& good)
{
    std::uint64_t number = 0;
    if (word == "--path") {
        const std::string_view path = value;
        good = path == "pipe" || path == "usb";
        arguments.path = path == "usb" ? Path::Usb : Path::SimulatorPipe;
    } else if (word == "--call") {
        good = ParseNumber(value, arguments.options.injection.call) && arguments.options.injection.call > 0;
    } else if (word == "--error") {
        good = ParseNumber(value, number) && number < 100;
        arguments.options.injection.error = static_cast<unsigned>(number);
    } else if (word == "--hours") {
        good = ParseNumber(value, arguments.hours) && arguments.hours > 0 && arguments.hours <= 1000;
    } else if (word == "--every") {
        good = ParseNumber(value, arguments.everySeconds) && arguments.everySeconds > 0 &&
               arguments.everySeconds <= 3600;
    } else {
        return false;
    }
    return true;
}

bool ParseValue(std::string_view word, const char* value, Arguments& arguments, bool& good)
{
    std::uint64_t number = 0;
    if (word == "--seeds") {
        good = ParseNumber(value, arguments.count) && arguments.count > 0;
    } else if (word == "--from") {
        good = ParseNumber(value, arguments.first);
    } else if (word == "--seed") {
        good = ParseNumber(value, arguments.first);
        arguments.oneSeed = true;
        arguments.count = 1;
    } else if (word == "--minutes") {
        char* end = nullptr;
        arguments.minutes = std::strtod(value, &end);
        good = *value != '\0' && *end == '\0' && *arguments.minutes > 0;
    } else if (word == "--faults") {
        good = ParseFaults(value, arguments.options.faults);
    } else if (word == "--requests") {
        good = ParseNumber(value, number) && number > 0 && number <= 100'000;
        arguments.options.requests = static_cast<int>(number);
    } else if (word == "--fill") {
        good = ParseNumber(value, number) && number > 0 && number < 256;
        arguments.options.stackFill = static_cast<int>(number);
    } else {
        return ParseModeValue(word, value, arguments, good);
    }
    return true;
}

} // namespace

Arguments ParseArguments(int count, char** words, std::string& error)
{
    Arguments arguments;
    for (int i = 1; i < count && error.empty(); ++i) {
        const std::string word = words[i];
        if (ParseFlag(word, arguments)) {
            continue;
        }
        bool good = false;
        const char* const value = i + 1 < count ? words[i + 1] : "";
        if (!ParseValue(word, value, arguments, good)) {
            error = "unknown argument " + word;
        } else if (!good) {
            error = "bad value for " + word + ": \"" + value + '"';
        }
        ++i;
    }
    const bool isOneRun = arguments.oneSeed || arguments.options.injection.call != 0;
    if (error.empty() && arguments.prints && !isOneRun) {
        error = "--trace needs --seed, or --call";
    }
    if (error.empty() && arguments.options.injection.call != 0 && !(arguments.eachCall && arguments.path)) {
        error = "--call needs --each-call and --path";
    }
    return arguments;
}

} // namespace sim
