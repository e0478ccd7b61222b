// The script language: each of its phrases is one entry of a table, which reads it, does it and explains it.
#include "instrument/Script.h"

#include "console/TypedBytes.h"
#include "instrument/Lexer.h"

#include <algorithm>
#include <ranges>
#include <utility>

namespace instrument {

namespace {

using Plan = ResponsePlan;
using Incident = FirmwareScript::Incident;

constexpr std::int64_t MostBytes = 65535;

/// The words of `syntax` in lower case stand in the line as they are; `read` takes what follows them and does to
/// `target` what the line says.
template <class Target>
struct Phrase
{
    std::string_view syntax;
    std::string_view help;
    void (*read)(Lexer& in, Target& target);
};

/// The lower-case words that `syntax` begins with, one or two.
std::string_view FixedWords(std::string_view syntax)
{
    const std::size_t variable = syntax.find_first_of("[ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    return syntax.substr(0, variable == syntax.npos ? variable : variable - 1);
}

/// Takes the fixed words of a phrase and returns it. When the next word begins none of them, it is no `what`; null
/// when that is nothing.
template <class Target>
const Phrase<Target>* Find(const std::vector<Phrase<Target>>& phrases, Lexer& in, const char* what = nullptr)
{
    std::string continuations;
    for (const Phrase<Target>& phrase : phrases) {
        const std::string_view words = FixedWords(phrase.syntax);
        if (in.Accept(words)) {
            return &phrase;
        }
        const std::size_t space = std::min(words.find(' '), words.size());
        if (in.Is(words.substr(0, space))) {
            continuations += (continuations.empty() ? "" : ", ") + std::string(words.substr(space + 1));
        }
    }
    if (!continuations.empty()) {
        throw ParseError("'" + in.Next("") + "' must be followed by one of: " + continuations);
    }
    return what == nullptr ? nullptr : throw ParseError("'" + in.Next(what) + "' is not " + what);
}

/// "TYPE,PORT", 0 to 255 each.
Address PortAddress(Lexer& in)
{
    const std::string text = in.Next("a port address (TYPE,PORT)");
    const std::size_t comma = text.find(',');
    if (comma == std::string::npos) {
        throw ParseError("'" + text + "' is not a port address (TYPE,PORT)");
    }
    const auto type = Lexer::WholeNumber(text.substr(0, comma), "device type", 0, 255);
    const auto port = Lexer::WholeNumber(text.substr(comma + 1), "port", 0, 255);
    return {static_cast<std::uint8_t>(type), static_cast<std::uint8_t>(port)};
}

/// All words up to the end of the action: hex digits, two a byte, or text in quotes; at least one.
Bytes Payload(Lexer& in)
{
    if (in.AtEndOfAction()) {
        throw ParseError("a payload is missing (hex digits or a text in quotes)");
    }
    Bytes payload;
    while (!in.AtEndOfAction()) {
        const std::string_view word = in.NextWord();
        const Bytes more = word[0] == '"' ? console::BytesOfText(word.substr(1)) : console::BytesOfHex(word);
        payload.insert(payload.end(), more.begin(), more.end());
    }
    return payload;
}

const std::vector<Phrase<Trigger>> RequestTriggers = {
    {"always", "the default", [](Lexer&, Trigger&) {}},
    {"request N", "the N-th",
     [](Lexer& in, Trigger& trigger) { trigger.first = trigger.last = in.Number("request number", 1); }},
    {"requests N to M", "from the N-th to the M-th; \"requests N on\": from the N-th on",
     [](Lexer& in, Trigger& trigger) {
         trigger.first = in.Number("request number", 1);
         if (in.Accept("to")) {
             trigger.last = in.Number("request number", 1);
         } else {
             in.Expect("on");
         }
     }},
    {"every N", "each N-th",
     [](Lexer& in, Trigger& trigger) { trigger.every = in.Number("count of requests", 1); }},
    {"chance P", "P percent of them, drawn by \"seed\"",
     [](Lexer& in, Trigger& trigger) { trigger.percent = in.Number("chance in percent", 0, 100); }},
    {"from TYPE,PORT", "only of that port; also after any of the above",
     [](Lexer& in, Trigger& trigger) { trigger.from = PortAddress(in); }},
};

const std::vector<Phrase<Trigger>> TimeTriggers = {
    {"connected", "as soon as the router is connected",
     [](Lexer&, Trigger& trigger) { trigger.after = Time::zero(); }},
    {"after MS", "once, so long after the connection",
     [](Lexer& in, Trigger& trigger) { trigger.after = in.Milliseconds(); }},
    {"each MS", "again and again, so long after the connection and after each other",
     [](Lexer& in, Trigger& trigger) {
         trigger.after = in.Milliseconds();
         trigger.repeats = true;
         if (trigger.after == Time::zero()) {
             throw ParseError("'each' needs a time above 0");
         }
     }},
};

void AddPacket(Plan& plan, Address to, Lexer& in)
{
    plan.extras.push_back({to, in.AtEndOfAction() ? std::nullopt : std::optional(Payload(in))});
}

/// "[back MS]".
std::optional<Time> TimeOfReturn(Lexer& in)
{
    return in.Accept("back") ? std::optional(in.Milliseconds()) : std::nullopt;
}

const std::vector<Phrase<Plan>> Actions = {
    {"echo", "answer with the request's payload, to its sender (the default)",
     [](Lexer&, Plan& plan) {
         plan.isAnswered = true;
         plan.fixedAnswer.reset();
     }},
    {"silence", "don't answer", [](Lexer&, Plan& plan) { plan.isAnswered = false; }},
    {"reply PAYLOAD", "answer with this",
     [](Lexer& in, Plan& plan) {
         plan.isAnswered = true;
         plan.fixedAnswer = Payload(in);
     }},
    {"send TYPE,PORT [PAYLOAD]", "one more packet, after the answer; without a payload the request's",
     [](Lexer& in, Plan& plan) { AddPacket(plan, PortAddress(in), in); }},
    {"broadcast [PAYLOAD]", "the same to 255,2, which the router hands to every port numbered 2",
     [](Lexer& in, Plan& plan) { AddPacket(plan, {255, 2}, in); }},
    {"delay MS", "answer so long after the request",
     [](Lexer& in, Plan& plan) { plan.delay = in.Milliseconds(); }},
    {"duplicate [N]", "send the answer N times in all (2)",
     [](Lexer& in, Plan& plan) {
         plan.copies = in.AtEndOfAction() ? 2 : in.Number<unsigned>("count of copies", 1, 1000);
     }},
    {"corrupt", "first byte of the payload wrong, checksum fitting it",
     [](Lexer&, Plan& plan) { plan.wrongPayload = true; }},
    {"checksum", "wrong checksum", [](Lexer&, Plan& plan) { plan.wrongChecksum = true; }},
    {"number N", "packet number of the answer; the following ones count on from it",
     [](Lexer& in, Plan& plan) { plan.packetNumber = in.Number<std::uint8_t>("packet number", 0, 255); }},
    {"gap [N]", "leave out N packet numbers (1) before the answer",
     [](Lexer& in, Plan& plan) {
         plan.skippedNumbers = in.AtEndOfAction() ? 1 : in.Number<unsigned>("count of numbers", 1, 255);
     }},
    {"garbage N", "N random bytes before the answer",
     [](Lexer& in, Plan& plan) { plan.garbage = in.Number<std::size_t>("count of bytes", 1, MostBytes); }},
    {"raw PAYLOAD", "these bytes, unframed, before the answer",
     [](Lexer& in, Plan& plan) { plan.rawAhead = Payload(in); }},
    {"split N [MS]", "the answer in writes of N bytes, so long apart (0)",
     [](Lexer& in, Plan& plan) {
         plan.splitInto = in.Number<std::size_t>("count of bytes", 1, MostBytes);
         plan.splitGap = in.AtEndOfAction() ? Time::zero() : in.Milliseconds();
     }},
    {"merge N [MS]", "hold the answer until N packets are together (at most 100 ms), one write for all",
     [](Lexer& in, Plan& plan) {
         plan.mergeOf = in.Number<std::size_t>("count of packets", 2, 10000);
         plan.mergeWait = in.AtEndOfAction() ? std::chrono::milliseconds(100) : in.Milliseconds();
     }},
    {"vanish [after N] [back MS]",
     "after N bytes of the answer (half of it) go away as if unplugged; be there again\nafter MS, else never",
     [](Lexer& in, Plan& plan) {
         plan.vanishing.emplace();
         if (in.Accept("after")) {
             plan.vanishing->after = in.Number<std::size_t>("count of bytes", 0);
         }
         plan.vanishing->back = TimeOfReturn(in);
     }},
};

const std::vector<Phrase<Incident>> Incidents = {
    {"fail", "DOWNLOAD_FAIL",
     [](Lexer&, Incident& incident) { incident.answer = Plan::Reply("DOWNLOAD_FAIL\r"); }},
    {"ready", "FIRMWARE_READY",
     [](Lexer&, Incident& incident) { incident.answer = Plan::Reply("FIRMWARE_READY\r"); }},
    {"rebooting [back MS]", "REBOOTING; with \"back\", vanish and be there again after MS",
     [](Lexer& in, Incident& incident) {
         incident.answer = Plan::Reply("REBOOTING\r");
         if (const auto back = TimeOfReturn(in)) {
             incident.answer.vanishing = {SIZE_MAX, back};
         }
     }},
    {"silence", "no answer", [](Lexer&, Incident& incident) { incident.ends = false; }},
    {"vanish [back MS]", "no answer, and gone",
     [](Lexer& in, Incident& incident) { incident.answer.vanishing = {SIZE_MAX, TimeOfReturn(in)}; }},
    {"answer PAYLOAD", "this",
     [](Lexer& in, Incident& incident) { incident.answer = {.fixedAnswer = Payload(in)}; }},
};

// A chunk size may be any number: a foolish one shows what the router makes of it.
const std::vector<Phrase<Script>> Statements = {
    {"flood TYPE,PORT SIZE [RATE [COUNT]]",
     "unrequested packets, RATE a second (0, the default: as fast as\n"
     "they are taken), COUNT in all (0, the default: without end); numbered payloads",
     [](Lexer& in, Script& script) {
         script.flood = {PortAddress(in), in.Number<std::size_t>("payload length", 1, MostBytes),
                         in.AtEndOfAction() ? 0 : in.Number("rate per second", 0, 1'000'000),
                         in.AtEndOfAction() ? 0 : in.Number("count of packets", 0)};
     }},
    {"numbers from N", "the first packet number of a connection (1); the router reports the 0 after 255 as a gap",
     [](Lexer& in, Script& script) {
         script.numbersAreZero = false;
         script.firstNumber = in.Number<std::uint8_t>("packet number", 0, 255);
     }},
    {"numbers zero", "every packet numbered 0, with which the router never finds fault",
     [](Lexer&, Script& script) { script.numbersAreZero = true; }},
    {"seed N", "of \"chance\" and \"garbage\" (1)",
     [](Lexer& in, Script& script) { script.seed = in.Number<std::uint32_t>("seed", 0, UINT32_MAX); }},
    {"write N", "at most N bytes in one write (65535)",
     [](Lexer& in, Script& script) {
         script.largestWrite = in.Number<std::size_t>("count of bytes", 1, 1'000'000);
     }},
    {"firmware accept [SIZE]", "answer PREPARE_DOWNLOAD with the announced size and this chunk size (4000)",
     [](Lexer& in, Script& script) {
         script.firmware.prepareAnswer.reset();
         script.firmware.echoOffset = 0;
         if (!in.AtEndOfAction()) {
             script.firmware.chunkSize = in.Number<std::int64_t>("chunk size", -Lexer::Most);
         }
     }},
    {"firmware deny", "answer it with DENY",
     [](Lexer&, Script& script) { script.firmware.prepareAnswer = console::BytesOfText("DENY\r"); }},
    {"firmware wrong-echo", "answer it with a size that is 1 too large",
     [](Lexer&, Script& script) {
         script.firmware.prepareAnswer.reset();
         script.firmware.echoOffset = 1;
     }},
    {"firmware answer PAYLOAD", "answer it with this",
     [](Lexer& in, Script& script) { script.firmware.prepareAnswer = Payload(in); }},
    {"firmware unanswered N", "don't answer the first N of them",
     [](Lexer& in, Script& script) { script.firmware.unansweredPrepares = in.Number("count of messages", 0); }},
    {"firmware delay MS", "before each answer of the bootloader",
     [](Lexer& in, Script& script) { script.firmware.delay = in.Milliseconds(); }},
    {"firmware quiet", "don't answer chunks, only the closing message",
     [](Lexer&, Script& script) { script.firmware.answersChunks = false; }},
    {"firmware at WHERE WHAT",
     "WHERE: the number of a chunk, counted from 1, or \"done\", the closing message. Once:",
     [](Lexer& in, Script& script) {
         Incident incident;
         incident.at = in.Accept("done") ? FirmwareScript::AtDone : in.Number("chunk number", 1);
         Find(Incidents, in, "what happens then")->read(in, incident);
         script.firmware.incident = std::move(incident);
     }},
};

Trigger ReadTrigger(Lexer& in)
{
    Trigger trigger;
    if (const auto* const timed = Find(TimeTriggers, in)) {
        timed->read(in, trigger);
    } else {
        Find(RequestTriggers, in, "a condition")->read(in, trigger);
        if (in.Accept("from")) {
            trigger.from = PortAddress(in);
        }
    }
    in.Expect(":");
    return trigger;
}

/// Without a request there is nothing to answer and no payload to send on.
void CheckTimedRule(const Plan& plan)
{
    if (plan.isAnswered) {
        throw ParseError("an answer needs a request");
    }
    if (!std::ranges::all_of(plan.extras, [](const auto& extra) { return extra.payload.has_value(); })) {
        throw ParseError("a packet without a request needs a payload");
    }
}

Rule ReadRule(Lexer& in)
{
    Rule rule;
    if (in.Has(":")) {
        rule.trigger = ReadTrigger(in);
    }
    Plan plan = Plan::Silence();
    do {
        const Phrase<Plan>* const action = Find(Actions, in, "an action");
        rule.actions.push_back([action, words = in](Plan& target) {
            Lexer again = words;
            action->read(again, target);
        });
        action->read(in, plan);
    } while (in.Accept(";"));
    if (rule.trigger.after) {
        CheckTimedRule(plan);
    }
    return rule;
}

void ReadLine(Script& script, std::string_view line)
{
    Lexer in(line);
    if (const auto* const statement = Find(Statements, in)) {
        statement->read(in, script);
    } else if (!in.AtEnd()) {
        script.rules.push_back(ReadRule(in));
    }
    in.ExpectEnd();
}

/// A line for each phrase: syntax, and what it means from column 26 on.
template <class Target>
std::string HelpOf(const std::vector<Phrase<Target>>& phrases, std::size_t indent = 2)
{
    constexpr std::size_t Column = 26;
    std::string text;
    for (const Phrase<Target>& phrase : phrases) {
        std::string line = std::string(indent, ' ').append(phrase.syntax);
        line.resize(std::max(line.size() + 2, Column), ' ');
        for (const char each : phrase.help) {
            line += each;
            line.append(each == '\n' ? Column : 0, ' ');
        }
        text += line + '\n';
    }
    return text;
}

} // namespace

std::optional<std::string> AddScriptLine(Script& script, std::string_view line)
{
    try {
        Script scratch; // a wrong line is found here and changes nothing
        ReadLine(scratch, line);
        ReadLine(script, line);
        return std::nullopt;
    } catch (const ParseError& wrong) {
        return wrong.what();
    }
}

std::optional<std::string> AddScriptText(Script& script, std::string_view text)
{
    std::size_t number = 0;
    for (const auto line : std::views::split(text, '\n')) {
        ++number;
        if (const auto error = AddScriptLine(script, {line.begin(), line.end()})) {
            return "line " + std::to_string(number) + ": " + *error;
        }
    }
    return std::nullopt;
}

std::string ScriptHelp()
{
    return R"(Script lines (a "#" begins a comment; times are milliseconds, decimals allowed):

  [WHEN:] ACTION[; ACTION]...        all rules that match a request apply, from the first line to the last

WHEN, for requests (packets of type 1 to any port but 0,0; counted from 1 over all ports):
)" + HelpOf(RequestTriggers) +
           R"(WHEN, without a request (nothing is answered; "send", "broadcast", "raw", "garbage", "vanish" and what
is done to them make sense here):
)" + HelpOf(TimeTriggers) +
           "\nACTION:\n" + HelpOf(Actions) +
           R"(What is done to packets (delay, numbers, checksum, ...) is done to the answer, or without an answer to the first
of the other packets.

PAYLOAD: hex digits and texts in double quotes in any order: 02 "abc\r\n" 0003. In a text: \r \n \t \0 \\ \" \xHH.

Other lines:
)" + HelpOf(Statements) +
           HelpOf(Incidents, 6);
}

} // namespace instrument
