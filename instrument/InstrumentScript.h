// What a simulated instrument does and when: the script, read from a small line language. Portable.
#pragma once

#include "instrument/InstrumentTreatment.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace instrument {

/// One thing a rule does to the treatment.
struct RuleAction
{
    enum class Kind {
        Echo,
        Silence,
        Reply,
        Send,
        Delay,
        Duplicate,
        WrongPayload,
        WrongChecksum,
        Number,
        Gap,
        Raw,
        Garbage,
        Split,
        Merge,
        Vanish,
    };

    Kind kind = Kind::Echo;
    std::uint64_t count = 0;
    Time time{};
    Address to;
    std::optional<Bytes> payload; // Send: none means the request's
    Vanishing vanishing;

    void Apply(Treatment& treatment) const;
};

/// When a rule applies.
struct RuleTrigger
{
    enum class Kind { Always, Requests, Every, Chance, Connected, After, Each };

    Kind kind = Kind::Always;
    std::uint64_t first = 1; // Requests: from the first to the last, counted from 1. Every, Chance: N, percent
    std::uint64_t last = 0;
    Time time{};                 // After, Each
    std::optional<Address> from; // Always, Requests, Every, Chance: only requests of this port

    /// True for the kinds that need no request.
    bool IsTimed() const noexcept { return kind >= Kind::Connected; }
};

struct Rule
{
    RuleTrigger trigger;
    std::vector<RuleAction> actions;
};

/// Packets that nobody asked for, for measurements.
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
    enum class Prepare { Accept, Deny, WrongEcho, Text };
    enum class Chunk { Accept, Fail, Ready, Rebooting, Silence, Vanish, Text };
    static constexpr std::uint64_t AtDone = 0;

    Prepare prepare = Prepare::Accept;
    std::int64_t chunkSize = 4000;
    std::uint64_t unansweredPrepares = 0; // so many requests to prepare get no answer at first
    Bytes prepareText;                    // of Prepare::Text
    Chunk special = Chunk::Accept;        // what happens instead at `specialAt`
    Bytes specialText;                    // of Chunk::Text
    std::uint64_t specialAt = AtDone;     // a chunk, counted from 1, or the closing message
    std::optional<Time> back;             // Rebooting, Vanish: there again after this time
    Time delay{};                         // before each answer
    bool answersChunks = true;            // false: only the closing message is answered
};

struct Script
{
    std::vector<Rule> rules; // all that match apply, in this order
    std::optional<Flood> flood;
    FirmwareScript firmware;
    Numbering numbering = Numbering::Wrap;
    std::uint8_t firstNumber = 1;
    std::uint32_t seed = 1; // of chance and garbage
    std::size_t largestWrite = 65535;
};

/// What is wrong with a line, in one line of English.
using ScriptError = std::string;

/// Adds one line of the script language (see ScriptHelp) to `script`. Empty lines and comments change nothing.
std::optional<ScriptError> AddScriptLine(Script& script, std::string_view line);

/// Adds all lines of `text`; the error, if any, begins with "line N: ".
std::optional<ScriptError> AddScriptText(Script& script, std::string_view text);

/// The language, as a text for people.
std::string_view ScriptHelp() noexcept;

} // namespace instrument
