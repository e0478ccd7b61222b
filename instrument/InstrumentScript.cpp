#include "instrument/InstrumentScript.h"

#include "instrument/InstrumentWords.h"

#include <functional>
#include <map>
#include <utility>

namespace instrument {

namespace {

using Kind = RuleAction::Kind;

constexpr std::int64_t MostBytes = 65535;
constexpr Time DefaultMergeWait = std::chrono::milliseconds(100);

RuleTrigger ReadRequestTrigger(Words& words)
{
    RuleTrigger trigger;
    if (words.Accept("request")) {
        trigger.kind = RuleTrigger::Kind::Requests;
        trigger.first = static_cast<std::uint64_t>(words.Number("request number", 1, Words::Most));
        trigger.last = trigger.first;
    } else if (words.Accept("requests")) {
        trigger.kind = RuleTrigger::Kind::Requests;
        trigger.first = static_cast<std::uint64_t>(words.Number("request number", 1, Words::Most));
        trigger.last = UINT64_MAX;
        if (words.Accept("to")) {
            trigger.last = static_cast<std::uint64_t>(words.Number("request number", 1, Words::Most));
        } else {
            words.Expect("on");
        }
    } else if (words.Accept("every")) {
        trigger.kind = RuleTrigger::Kind::Every;
        trigger.first = static_cast<std::uint64_t>(words.Number("count of requests", 1, Words::Most));
    } else if (words.Accept("chance")) {
        trigger.kind = RuleTrigger::Kind::Chance;
        trigger.first = static_cast<std::uint64_t>(words.Number("chance in percent", 0, 100));
    } else if (!words.Is("from")) {
        words.Expect("always");
    }
    if (words.Accept("from")) {
        trigger.from = words.PortAddress();
    }
    return trigger;
}

RuleTrigger ReadTrigger(Words& words)
{
    RuleTrigger trigger;
    if (words.Accept("connected")) {
        trigger.kind = RuleTrigger::Kind::Connected;
    } else if (words.Accept("after")) {
        trigger.kind = RuleTrigger::Kind::After;
        trigger.time = words.Milliseconds();
    } else if (words.Accept("each")) {
        trigger.kind = RuleTrigger::Kind::Each;
        trigger.time = words.Milliseconds();
        if (trigger.time == Time::zero()) {
            throw WrongLine("'each' needs a time above 0");
        }
    } else {
        trigger = ReadRequestTrigger(words);
    }
    words.Expect(":");
    return trigger;
}

std::optional<Bytes> OptionalPayload(Words& words)
{
    return words.AtEndOfAction() ? std::nullopt : std::optional(words.Payload());
}

std::uint64_t OptionalCount(Words& words, const char* what, std::int64_t least, std::int64_t most,
                            std::uint64_t otherwise)
{
    return words.AtEndOfAction() ? otherwise : static_cast<std::uint64_t>(words.Number(what, least, most));
}

Vanishing ReadVanishing(Words& words)
{
    Vanishing vanishing;
    if (words.Accept("after")) {
        vanishing.after = static_cast<std::size_t>(words.Number("count of bytes", 0, Words::Most));
    }
    if (words.Accept("back")) {
        vanishing.back = words.Milliseconds();
    }
    return vanishing;
}

/// Reads what stands behind the name of an action.
using ReadAction = void (*)(Words&, RuleAction&);

const std::map<std::string, std::pair<Kind, ReadAction>, std::less<>>& Actions()
{
    static const std::map<std::string, std::pair<Kind, ReadAction>, std::less<>> actions = {
        {"echo", {Kind::Echo, [](Words&, RuleAction&) {}}},
        {"silence", {Kind::Silence, [](Words&, RuleAction&) {}}},
        {"corrupt", {Kind::WrongPayload, [](Words&, RuleAction&) {}}},
        {"checksum", {Kind::WrongChecksum, [](Words&, RuleAction&) {}}},
        {"reply", {Kind::Reply, [](Words& words, RuleAction& action) { action.payload = words.Payload(); }}},
        {"raw", {Kind::Raw, [](Words& words, RuleAction& action) { action.payload = words.Payload(); }}},
        {"delay", {Kind::Delay, [](Words& words, RuleAction& action) { action.time = words.Milliseconds(); }}},
        {"vanish",
         {Kind::Vanish, [](Words& words, RuleAction& action) { action.vanishing = ReadVanishing(words); }}},
        {"send",
         {Kind::Send,
          [](Words& words, RuleAction& action) {
              action.to = words.PortAddress();
              action.payload = OptionalPayload(words);
          }}},
        {"broadcast",
         {Kind::Send,
          [](Words& words, RuleAction& action) {
              action.to = BroadcastAddress;
              action.payload = OptionalPayload(words);
          }}},
        {"duplicate",
         {Kind::Duplicate,
          [](Words& words, RuleAction& action) {
              action.count = OptionalCount(words, "count of copies", 1, 1000, 2);
          }}},
        {"number",
         {Kind::Number,
          [](Words& words, RuleAction& action) {
              action.count = static_cast<std::uint64_t>(words.Number("packet number", 0, 255));
          }}},
        {"gap",
         {Kind::Gap,
          [](Words& words, RuleAction& action) {
              action.count = OptionalCount(words, "count of numbers", 1, 255, 1);
          }}},
        {"garbage",
         {Kind::Garbage,
          [](Words& words, RuleAction& action) {
              action.count = static_cast<std::uint64_t>(words.Number("count of bytes", 1, MostBytes));
          }}},
        {"split",
         {Kind::Split,
          [](Words& words, RuleAction& action) {
              action.count = static_cast<std::uint64_t>(words.Number("count of bytes", 1, MostBytes));
              action.time = words.AtEndOfAction() ? Time::zero() : words.Milliseconds();
          }}},
        {"merge",
         {Kind::Merge,
          [](Words& words, RuleAction& action) {
              action.count = static_cast<std::uint64_t>(words.Number("count of packets", 2, 10000));
              action.time = words.AtEndOfAction() ? DefaultMergeWait : words.Milliseconds();
          }}},
    };
    return actions;
}

RuleAction ReadRuleAction(Words& words, bool timed)
{
    const std::string name = words.Next("an action");
    const auto found = Actions().find(name);
    if (found == Actions().end()) {
        throw WrongLine("'" + name + "' is not an action");
    }
    RuleAction action;
    action.kind = found->second.first;
    found->second.second(words, action);
    if (timed && (action.kind == Kind::Echo || action.kind == Kind::Reply)) {
        throw WrongLine("'" + name + "' needs a request to answer");
    }
    if (timed && action.kind == Kind::Send && !action.payload) {
        throw WrongLine("'" + name + "' without a request needs a payload");
    }
    return action;
}

void ReadRule(Words& words, Script& script)
{
    Rule rule;
    if (words.Has(":")) {
        rule.trigger = ReadTrigger(words);
    }
    do {
        rule.actions.push_back(ReadRuleAction(words, rule.trigger.IsTimed()));
    } while (words.Accept(";"));
    words.ExpectEnd();
    script.rules.push_back(std::move(rule));
}

void ReadFlood(Words& words, Script& script)
{
    Flood flood;
    flood.to = words.PortAddress();
    flood.payloadLength = static_cast<std::size_t>(words.Number("payload length", 1, MostBytes));
    flood.perSecond = OptionalCount(words, "rate per second", 0, 1'000'000, 0);
    flood.count = OptionalCount(words, "count of packets", 0, Words::Most, 0);
    words.ExpectEnd();
    script.flood = flood;
}

void ReadNumbers(Words& words, Script& script)
{
    if (words.Accept("zero")) {
        script.numbering = Numbering::Zero;
    } else {
        words.Expect("from");
        script.numbering = Numbering::Wrap;
        script.firstNumber = static_cast<std::uint8_t>(words.Number("packet number", 0, 255));
    }
    words.ExpectEnd();
}

void ReadChunkEvent(Words& words, FirmwareScript& firmware)
{
    using Chunk = FirmwareScript::Chunk;
    static const std::map<std::string, Chunk, std::less<>> events = {
        {"fail", Chunk::Fail},       {"ready", Chunk::Ready},   {"rebooting", Chunk::Rebooting},
        {"silence", Chunk::Silence}, {"vanish", Chunk::Vanish}, {"answer", Chunk::Text}};
    firmware.specialAt = words.Accept("done")
                           ? FirmwareScript::AtDone
                           : static_cast<std::uint64_t>(words.Number("chunk number", 1, Words::Most));
    const std::string name = words.Next("what happens then");
    const auto found = events.find(name);
    if (found == events.end()) {
        throw WrongLine("'" + name + "' is not one of fail, ready, rebooting, silence, vanish, answer");
    }
    firmware.special = found->second;
    if (firmware.special == Chunk::Text) {
        firmware.specialText = words.Payload();
    } else if (words.Accept("back")) {
        firmware.back = words.Milliseconds();
    }
}

void ReadFirmware(Words& words, Script& script)
{
    using Prepare = FirmwareScript::Prepare;
    FirmwareScript& firmware = script.firmware;
    if (words.Accept("accept")) {
        firmware.prepare = Prepare::Accept;
        if (!words.AtEnd()) {
            // Any number: what the router makes of a foolish one is worth seeing.
            firmware.chunkSize = words.Number("chunk size", -Words::Most, Words::Most);
        }
    } else if (words.Accept("deny")) {
        firmware.prepare = Prepare::Deny;
    } else if (words.Accept("wrong-echo")) {
        firmware.prepare = Prepare::WrongEcho;
    } else if (words.Accept("answer")) {
        firmware.prepare = Prepare::Text;
        firmware.prepareText = words.Payload();
    } else if (words.Accept("unanswered")) {
        firmware.unansweredPrepares =
            static_cast<std::uint64_t>(words.Number("count of messages", 0, Words::Most));
    } else if (words.Accept("delay")) {
        firmware.delay = words.Milliseconds();
    } else if (words.Accept("quiet")) {
        firmware.answersChunks = false;
    } else {
        words.Expect("at");
        ReadChunkEvent(words, firmware);
    }
    words.ExpectEnd();
}

void ReadLine(Words& words, Script& script)
{
    if (words.AtEnd()) {
        return;
    }
    if (words.Accept("flood")) {
        ReadFlood(words, script);
    } else if (words.Accept("numbers")) {
        ReadNumbers(words, script);
    } else if (words.Accept("firmware")) {
        ReadFirmware(words, script);
    } else if (words.Accept("seed")) {
        script.seed = static_cast<std::uint32_t>(words.Number("seed", 0, UINT32_MAX));
        words.ExpectEnd();
    } else if (words.Accept("write")) {
        script.largestWrite = static_cast<std::size_t>(words.Number("count of bytes", 1, 1'000'000));
        words.ExpectEnd();
    } else {
        ReadRule(words, script);
    }
}

} // namespace

void RuleAction::Apply(Treatment& treatment) const
{
    switch (kind) {
    case Kind::Echo: treatment.answer = Treatment::Answer::Echo; break;
    case Kind::Silence: treatment.answer = Treatment::Answer::None; break;
    case Kind::Reply:
        treatment.answer = Treatment::Answer::Fixed;
        treatment.fixedAnswer = payload.value_or(Bytes());
        break;
    case Kind::Send: treatment.extras.push_back({to, payload}); break;
    case Kind::Delay: treatment.delay = time; break;
    case Kind::Duplicate: treatment.copies = static_cast<unsigned>(count); break;
    case Kind::WrongPayload: treatment.wrongPayload = true; break;
    case Kind::WrongChecksum: treatment.wrongChecksum = true; break;
    case Kind::Number: treatment.packetNumber = static_cast<std::uint8_t>(count); break;
    case Kind::Gap: treatment.skippedNumbers = static_cast<unsigned>(count); break;
    case Kind::Raw: treatment.rawAhead = payload.value_or(Bytes()); break;
    case Kind::Garbage: treatment.garbage = static_cast<std::size_t>(count); break;
    case Kind::Split:
        treatment.splitInto = static_cast<std::size_t>(count);
        treatment.splitGap = time;
        break;
    case Kind::Merge:
        treatment.mergeOf = static_cast<std::size_t>(count);
        treatment.mergeWait = time;
        break;
    case Kind::Vanish: treatment.vanishing = vanishing; break;
    }
}

std::optional<ScriptError> AddScriptLine(Script& script, std::string_view line)
{
    try {
        Words words(line);
        ReadLine(words, script);
        return std::nullopt;
    } catch (const WrongLine& wrong) {
        return wrong.what();
    }
}

std::optional<ScriptError> AddScriptText(Script& script, std::string_view text)
{
    std::size_t number = 1;
    for (std::size_t at = 0; at < text.size(); ++number) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        if (const auto error = AddScriptLine(script, text.substr(at, end - at))) {
            return "line " + std::to_string(number) + ": " + *error;
        }
        at = end + 1;
    }
    return std::nullopt;
}

} // namespace instrument
