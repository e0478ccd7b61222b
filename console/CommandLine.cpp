#include "console/CommandLine.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace commandline {

namespace {

/// Walks over the arguments; one command line.
class Reader
{
public:
    Reader(const std::vector<std::string>& arguments, const std::vector<Switch>& switches)
        : m_arguments(arguments), m_switches(switches)
    {
    }

    std::optional<Error> Read(std::vector<std::string>* words)
    {
        bool onlyWords = false;
        for (; m_next < m_arguments.size(); ++m_next) {
            const std::string& argument = m_arguments[m_next];
            if (!onlyWords && argument == "--") {
                onlyWords = true;
            } else if (onlyWords || argument.size() < 2 || argument[0] != '-') {
                if (words == nullptr) {
                    return "unexpected argument '" + argument + "'";
                }
                words->push_back(argument);
            } else if (auto error = ReadSwitch(argument)) {
                return error;
            }
        }
        return std::nullopt;
    }

private:
    std::optional<Error> ReadSwitch(const std::string& argument)
    {
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const auto found = std::find_if(m_switches.begin(), m_switches.end(),
                                        [&](const Switch& each) { return each.name == name; });
        if (found == m_switches.end()) {
            return "unknown switch '" + name + "'";
        }
        if (!found->takesValue) {
            return equals == std::string::npos ? found->handle("") : "'" + name + "' takes no value";
        }
        std::string value;
        if (equals != std::string::npos) {
            value = argument.substr(equals + 1);
        } else if (m_next + 1 < m_arguments.size()) {
            value = m_arguments[++m_next];
        } else {
            return "'" + name + "' needs a value";
        }
        const auto error = found->handle(value);
        return error ? std::optional("'" + name + "': " + *error) : std::nullopt;
    }

    const std::vector<std::string>& m_arguments;
    const std::vector<Switch>& m_switches;
    std::size_t m_next = 0;
};

} // namespace

std::optional<Error> Parse(const std::vector<std::string>& arguments, const std::vector<Switch>& switches,
                           std::vector<std::string>* words)
{
    return Reader(arguments, switches).Read(words);
}

Handler Store(std::string& target)
{
    return [&target](const std::string& value) -> std::optional<Error> {
        target = value;
        return std::nullopt;
    };
}

Handler Set(bool& target)
{
    return [&target](const std::string&) -> std::optional<Error> {
        target = true;
        return std::nullopt;
    };
}

std::optional<std::int64_t> NumberOf(std::string_view text, std::int64_t least, std::int64_t most)
{
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < least || number > most) {
        return std::nullopt;
    }
    return number;
}

Handler StoreNumber(std::int64_t& target, std::int64_t least, std::int64_t most)
{
    return [&target, least, most](const std::string& value) -> std::optional<Error> {
        const auto number = NumberOf(value, least, most);
        if (!number) {
            return "'" + value + "' is not a whole number from " + std::to_string(least) + " to " +
                   std::to_string(most);
        }
        target = *number;
        return std::nullopt;
    };
}

std::optional<std::int64_t> ThousandthsOf(std::string_view text, double most)
{
    double number = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number, std::chars_format::fixed);
    // The comparison is also false for what is not a number.
    if (error != std::errc() || end != last || !(number >= 0 && number <= most)) {
        return std::nullopt;
    }
    return std::llround(number * 1000);
}

Handler StoreSeconds(std::int64_t& milliseconds)
{
    return [&milliseconds](const std::string& value) -> std::optional<Error> {
        const auto number = ThousandthsOf(value, 1e6);
        if (!number) {
            return "'" + value + "' is not a number of seconds";
        }
        milliseconds = *number;
        return std::nullopt;
    };
}

} // namespace commandline
