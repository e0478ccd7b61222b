// What a simulated instrument does and when: the script, read from a small line language. Portable.
#pragma once

#include "instrument/ResponsePlan.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace instrument {

/// When a rule applies: to requests, or (`after`) without one.
struct Trigger
{
    /// Whether the request of that number, counted from 1 over all ports, is meant; empty: all are.
    std::function<bool(std::uint64_t number, std::minstd_rand& random)> matches;
    std::optional<Address> from; // only requests of this port
    std::optional<Time> after;   // so long after the connection,
    bool repeats = false;        // and again so long after each time
};

/// One thing that a rule does to the plan.
using Action = std::function<void(ResponsePlan&)>;

struct Rule
{
    Trigger trigger;
    std::vector<Action> actions;

    void Apply(ResponsePlan& plan) const
    {
        for (const Action& action : actions) {
            action(plan);
        }
    }
};

/// Unrequested packets, for measurements.
struct Flood
{
    Address to;
    std::size_t payloadLength = 64;
    std::uint64_t perSecond = 0; // 0: as fast as they are taken
    std::uint64_t count = 0;     // 0: without end
};

/// The bootloader's side of a firmware download.
struct FirmwareScript
{
    static constexpr std::uint64_t AtDone = 0;

    /// Happens once, instead of the usual answer.
    struct Incident
    {
        std::uint64_t at = AtDone; // a chunk, counted from 1, or the closing message
        std::optional<Bytes> text; // the answer; none: silence
        std::optional<Vanishing> vanishing;
        bool ends = true; // the download is over with it
    };

    std::int64_t chunkSize = 4000;
    std::uint64_t echoOffset = 0;         // added to the size that is echoed
    std::optional<Bytes> prepareAnswer;   // instead of the echo and the chunk size
    std::uint64_t unansweredPrepares = 0; // so many requests to prepare get no answer at first
    std::optional<Incident> incident;
    Time delay{};              // before each answer
    bool answersChunks = true; // false: only the closing message is answered
};

struct Script
{
    std::vector<Rule> rules; // all that match apply, in this order
    std::optional<Flood> flood;
    FirmwareScript firmware;
    bool numbersAreZero = false;  // every packet is numbered 0, with which the router never finds fault
    std::uint8_t firstNumber = 1; // then on; the router reports the step from 255 to 0 as a gap
    std::uint32_t seed = 1;       // of chance and garbage
    std::size_t largestWrite = 65535;
};

/// What is wrong with a line, in one line of English.
using ScriptError = std::string;

/// Adds one line of the script language (see ScriptHelp) to `script`. Empty lines and comments change nothing.
std::optional<ScriptError> AddScriptLine(Script& script, std::string_view line);

/// Adds all lines of `text`; the error, if any, begins with "line N: ".
std::optional<ScriptError> AddScriptText(Script& script, std::string_view text);

/// The language, as a text for people.
std::string ScriptHelp();

} // namespace instrument
