// Command lines of the tools: switches with or without a value, and what is left over. Portable; UTF-8.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace commandline {

/// What is wrong with the command line, in one line.
using Error = std::string;

/// Takes the value ("" for a switch without one); an error when it does not like it.
using Handler = std::function<std::optional<Error>(const std::string& value)>;

struct Switch
{
    std::string name; // with its dashes
    bool takesValue;
    Handler handle;
};

/// Calls the handlers in the order of the switches on the command line. A value is the next argument or follows a
/// "=". `words` gets the arguments that are no switches; all arguments after a lone "--" are none. Switches and
/// values that are wrong, and words when `words` is null, give an error and end the reading.
std::optional<Error> Parse(const std::vector<std::string>& arguments, const std::vector<Switch>& switches,
                           std::vector<std::string>* words = nullptr);

/// Handlers that store a value; `target` must outlive the parsing.
Handler Store(std::string& target);
Handler Set(bool& target);
/// Whole numbers from `least` to `most`.
Handler StoreNumber(std::int64_t& target, std::int64_t least, std::int64_t most);
/// Seconds, decimals allowed, from 0 to a million; stored as milliseconds.
Handler StoreSeconds(std::int64_t& milliseconds);

/// The whole number that all of `text` is; none when it is not one from `least` to `most`.
std::optional<std::int64_t> NumberOf(std::string_view text, std::int64_t least, std::int64_t most);
/// 1000 times the number, decimals allowed, that all of `text` is; none when it is not one from 0 to `most`.
std::optional<std::int64_t> ThousandthsOf(std::string_view text, double most);

} // namespace commandline
