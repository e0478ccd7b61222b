// What a simulated instrument does and when: the script, read from a small line language. Portable.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace instrument {

/// A point in time or a span of it. Points count from any fixed moment that the caller likes.
using Time = std::chrono::microseconds;
using Bytes = std::vector<std::uint8_t>;

struct Address
{
    std::uint8_t deviceType = 0;
    std::uint8_t port = 0;
    bool operator==(const Address&) const = default;
};

/// The instrument goes away and, after `back`, is there again; without `back` it stays away.
struct Vanishing
{
    std::optional<std::size_t> after; // bytes of the answer that still go out; none: half of it
    std::optional<Time> back;
};

/// The answer to one request, or what happens without one; the actions of the matching rules fill it in.
struct ResponsePlan
{
    struct Extra
    {
        Address to;
        std::optional<Bytes> payload; // none: the request's payload
    };

    bool isAnswered = true;
    std::optional<Bytes> fixedAnswer{}; // none: the request's payload
    std::vector<Extra> extras{};        // packets after the answer
    Time delay{};
    unsigned copies = 1;
    bool wrongPayload = false;
    bool wrongChecksum = false;
    std::optional<std::uint8_t> packetNumber{};
    unsigned skippedNumbers = 0;
    Bytes rawAhead{};          // unframed bytes before the answer
    std::size_t garbage = 0;   // so many random bytes, without a sync pair, before those
    std::size_t splitInto = 0; // bytes of one write; 0: unsplit
    Time splitGap{};
    std::size_t mergeOf = 0; // packets of one write; 0: as they come
    Time mergeWait{};        // how long a write that is not full waits for more
    std::optional<Vanishing> vanishing{};

    static ResponsePlan Silence() { return {.isAnswered = false}; }
    static ResponsePlan Reply(std::string_view text) { return {.fixedAnswer = Bytes(text.begin(), text.end())}; }
};

/// When a rule applies: to requests that fulfil every condition, or (`after`) without one.
struct Trigger
{
    std::uint64_t first = 1; // requests are counted from 1 over all ports
    std::uint64_t last = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t every = 1;
    std::optional<std::uint64_t> percent;
    std::optional<Address> from;
    std::optional<Time> after; // so long after the connection,
    bool repeats = false;      // and again so long after each time

    bool Matches(std::uint64_t number, Address sender, std::minstd_rand& random) const
    {
        return !after && (!from || *from == sender) && number >= first && number <= last && number % every == 0 &&
               (!percent || random() % 100 < *percent);
    }
};

struct Rule
{
    using Action = std::function<void(ResponsePlan&)>;

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
        ResponsePlan answer = ResponsePlan::Silence();
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

/// Adds one line of the script language (see ScriptHelp) to `script`. Empty lines and comments change nothing.
/// Returns what is wrong with the line, in one line of English; a wrong line changes nothing.
std::optional<std::string> AddScriptLine(Script& script, std::string_view line);

/// Adds all lines of `text`; the error, if any, begins with "line N: ".
std::optional<std::string> AddScriptText(Script& script, std::string_view text);

/// The language, as a text for people.
std::string ScriptHelp();

} // namespace instrument
