#include "instrument/PlayOptions.h"

#include "console/WholeFile.h"

#include <algorithm>
#include <iterator>

using commandline::Error;
using commandline::Handler;
using commandline::Switch;

namespace {

/// A handler that adds the script line `line`, in which "%" stands for the switch's value, its commas as blanks.
Handler Line(instrument::Script& script, const std::string& line)
{
    return [&script, line](const std::string& value) {
        std::string filled = line;
        if (const std::size_t place = line.find('%'); place != std::string::npos) {
            std::string words = value;
            std::replace(words.begin(), words.end(), ',', ' ');
            filled.replace(place, 1, words);
        }
        return AddScriptLine(script, filled);
    };
}

/// A handler for "N" or "N,REST": N fills the first "%" and REST, or `otherwise`, the second.
Handler LineOfTwo(instrument::Script& script, const std::string& line, const std::string& otherwise)
{
    return [&script, line, otherwise](const std::string& value) {
        const std::size_t comma = value.find(',');
        const std::string rest = comma == std::string::npos ? otherwise : value.substr(comma + 1);
        std::string filled = line;
        filled.replace(filled.find('%'), 1, value.substr(0, comma));
        filled.replace(filled.find('%'), 1, rest);
        return AddScriptLine(script, filled);
    };
}

/// "TYPE,PORT,SIZE[,RATE[,COUNT]]": only the first comma belongs to the address.
Handler FloodLine(instrument::Script& script)
{
    return [&script](const std::string& value) {
        std::string words = value;
        const std::size_t first = words.find(',');
        if (first != std::string::npos) {
            std::replace(words.begin() + static_cast<std::ptrdiff_t>(first) + 1, words.end(), ',', ' ');
        }
        return AddScriptLine(script, "flood " + words);
    };
}

Handler ScriptFile(instrument::Script& script)
{
    return [&script](const std::string& path) -> std::optional<Error> {
        const auto bytes = WholeFile(path);
        if (!bytes) {
            return "'" + path + "' can't be read";
        }
        const auto error = AddScriptText(script, std::string(bytes->begin(), bytes->end()));
        return error ? std::optional(path + ", " + *error) : std::nullopt;
    };
}

} // namespace

std::vector<Switch> PlaySwitches(PlayOptions& options, std::vector<Switch> own)
{
    using namespace commandline;
    instrument::Script& script = options.script;
    std::vector<Switch> switches = {
        {"--help", false, Set(options.help)},
        {"--quiet", false, Set(options.quiet)},
        {"--for", true, StoreSeconds(options.milliseconds)},
        {"--requests", true, StoreNumber(options.requests, 1, INT64_MAX)},
        {"--ready-event", true, Store(options.readyEvent)},
        {"--stop-event", true, Store(options.stopEvent)},
        {"--script", true, ScriptFile(script)},
        {"--do", true, [&script](const std::string& line) { return AddScriptLine(script, line); }},
        {"--echo", false, Line(script, "echo")},
        {"--silent", false, Line(script, "silence")},
        {"--sink", false, Line(script, "silence")},
        {"--reply", true,
         [&script](const std::string& payload) { return AddScriptLine(script, "reply " + payload); }},
        {"--delay", true, Line(script, "delay %")},
        {"--broadcast", true, Line(script, "every %: broadcast")},
        {"--gap", true, Line(script, "every %: gap")},
        {"--checksum", true, Line(script, "every %: checksum")},
        {"--corrupt", true, Line(script, "every %: corrupt")},
        {"--duplicate", true, Line(script, "every %: duplicate")},
        {"--garbage", true, LineOfTwo(script, "every %: garbage %", "20")},
        {"--split", true, Line(script, "split %")},
        {"--merge", true, Line(script, "merge %")},
        {"--vanish", true, LineOfTwo(script, "request %: vanish back %", "1000")},
        {"--numbers-zero", false, Line(script, "numbers zero")},
        {"--flood", true, FloodLine(script)},
        {"--firmware", true,
         [&script](const std::string& line) { return AddScriptLine(script, "firmware " + line); }},
        {"--firmware-expect", true, Store(options.expectFile)},
    };
    std::move(own.begin(), own.end(), std::back_inserter(switches));
    return switches;
}
