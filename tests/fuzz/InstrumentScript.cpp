// Any text as a script of the simulated instrument: it is taken, or refused with the line that is wrong.
#include "instrument/Script.h"
#include "tests/fuzz/Target.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace fuzz {

namespace {

/// The number in "line N: "; 0 when the message begins otherwise.
std::size_t LineOf(std::string_view message)
{
    constexpr std::string_view Begin = "line ";
    std::size_t number = 0;
    if (message.starts_with(Begin)) {
        const auto [end, error] =
            std::from_chars(message.data() + Begin.size(), message.data() + message.size(), number);
        if (error != std::errc() || !std::string_view(end, message.data() + message.size()).starts_with(": ")) {
            return 0;
        }
    }
    return number;
}

std::string_view LineAt(std::string_view text, std::size_t number)
{
    for (; number > 1; --number) {
        text.remove_prefix(text.find('\n') + 1);
    }
    return text.substr(0, text.find('\n'));
}

void CheckTaken(const instrument::Script& script)
{
    Check(script.largestWrite >= 1, "a write has at least one byte");
    Check(std::ranges::none_of(script.rules, [](const instrument::Rule& rule) { return rule.actions.empty(); }),
          "every rule does something");
    std::minstd_rand random(1);
    for (const instrument::Rule& rule : script.rules) {
        rule.trigger.Matches(1, {3, 1}, random);
        instrument::ResponsePlan plan;
        rule.Apply(plan);
        Check(plan.delay >= instrument::Time{}, "no answer before its request");
    }
}

} // namespace

void InstrumentScript(Input input)
{
    const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
    instrument::Script script;
    const auto error = AddScriptText(script, text);
    if (!error) {
        CheckTaken(script);
        return;
    }
    const std::size_t line = LineOf(*error);
    const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n')) + 1;
    Check(line >= 1 && line <= lines, "an error names a line of the text");
    Check(error->find('\n') == std::string::npos, "an error is one line");
    instrument::Script alone;
    const auto again = AddScriptLine(alone, LineAt(text, line));
    Check(again.has_value(), "the line that is named is wrong by itself");
    Check(error->ends_with(*again), "for the same reason");
}

} // namespace fuzz
