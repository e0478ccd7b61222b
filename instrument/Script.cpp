// The script language: each of its phrases is one entry of a table, which reads it and explains it.
#include "instrument/Script.h"

#include "instrument/Lexer.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace instrument {

namespace {

using Answer = ResponsePlan::Answer;
using Incident = FirmwareScript::Incident;

constexpr std::int64_t MostBytes = 65535;

/// The words of `syntax` in lower case stand in the line as they are; what follows them is for `read`.
template <class Read>
struct Phrase
{
    const char* syntax;
    const char* help;
    Read* read;
};

std::vector<std::string_view> FixedWords(std::string_view syntax)
{
    std::vector<std::string_view> words;
    while (!syntax.empty() && (syntax[0] >= 'a' && syntax[0] <= 'z')) {
        const std::size_t end = std::min(syntax.find(' '), syntax.size());
        words.push_back(syntax.substr(0, end));
        syntax.remove_prefix(std::min(end + 1, syntax.size()));
    }
    return words;
}

/// Takes the fixed words of a phrase and returns it; null when the next word begins none of them.
template <class Read, std::size_t Count>
const Phrase<Read>* Take(const Phrase<Read> (&phrases)[Count], Lexer& in)
{
    std::string continuations;
    for (const Phrase<Read>& phrase : phrases) {
        const auto words = FixedWords(phrase.syntax);
        std::size_t matching = 0;
        while (matching < words.size() && in.Is(words[matching], matching)) {
            ++matching;
        }
        if (matching == words.size()) {
            in.Skip(matching);
            return &phrase;
        }
        if (matching != 0) {
            continuations += (continuations.empty() ? "" : ", ") + std::string(words[matching]);
        }
    }
    if (!continuations.empty()) {
        throw ParseError("'" + in.Next("") + "' must be followed by one of: " + continuations);
    }
    return nullptr;
}

template <class Read, std::size_t Count>
const Phrase<Read>& Demand(const Phrase<Read> (&phrases)[Count], Lexer& in, const std::string& what)
{
    const Phrase<Read>* const phrase = Take(phrases, in);
    if (phrase == nullptr) {
        throw ParseError("'" + in.Next(what) + "' is not " + what);
    }
    return *phrase;
}

const Phrase<void(Lexer&, Trigger&)> RequestTriggers[] = {
    {"always", "the default", [](Lexer&, Trigger&) {}},
    {"request N", "the N-th",
     [](Lexer& in, Trigger& trigger) {
         trigger.matches = [n = in.Number("request number", 1)](auto number, auto&) { return number == n; };
     }},
    {"requests N to M", "from the N-th to the M-th; \"requests N on\": from the N-th on",
     [](Lexer& in, Trigger& trigger) {
         const auto first = in.Number("request number", 1);
         const auto last = in.Accept("to") ? in.Number("request number", 1) : (in.Expect("on"), UINT64_MAX);
         trigger.matches = [=](auto number, auto&) { return number >= first && number <= last; };
     }},
    {"every N", "each N-th",
     [](Lexer& in, Trigger& trigger) {
         trigger.matches = [n = in.Number("count of requests", 1)](auto number, auto&) { return number % n == 0; };
     }},
    {"chance P", "P percent of them, drawn by \"seed\"",
     [](Lexer& in, Trigger& trigger) {
         trigger.matches = [percent = in.Number("chance in percent", 0, 100)](auto, auto& random) {
             return random() % 100 < percent;
         };
     }},
    {"from TYPE,PORT", "only of that port; also after any of the above",
     [](Lexer& in, Trigger& trigger) { trigger.from = in.PortAddress(); }},
};

const Phrase<void(Lexer&, Trigger&)> TimeTriggers[] = {
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

template <class Value>
Action Set(Value ResponsePlan::* field, const std::type_identity_t<Value>& value)
{
    return [=](ResponsePlan& plan) { plan.*field = value; };
}

template <class Integer>
Integer OptionalNumber(Lexer& in, const char* what, std::int64_t least, std::int64_t most, Integer otherwise)
{
    return in.AtEndOfAction() ? otherwise : in.Number<Integer>(what, least, most);
}

Time OptionalTime(Lexer& in, Time otherwise)
{
    return in.AtEndOfAction() ? otherwise : in.Milliseconds();
}

std::optional<Time> Back(Lexer& in)
{
    return in.Accept("back") ? std::optional(in.Milliseconds()) : std::nullopt;
}

void DemandRequest(bool timed)
{
    if (timed) {
        throw ParseError("an answer needs a request");
    }
}

Action SendTo(Address to, Lexer& in, bool timed)
{
    const auto payload = in.AtEndOfAction() ? std::nullopt : std::optional(in.Payload());
    if (timed && !payload) {
        throw ParseError("a packet without a request needs a payload");
    }
    return [=](ResponsePlan& plan) { plan.extras.push_back({to, payload}); };
}

const Phrase<Action(Lexer&, bool timed)> Actions[] = {
    {"echo", "answer with the request's payload, to its sender (the default)",
     [](Lexer&, bool timed) {
         DemandRequest(timed);
         return Set(&ResponsePlan::answer, Answer::Echo);
     }},
    {"silence", "don't answer", [](Lexer&, bool) { return Set(&ResponsePlan::answer, Answer::None); }},
    {"reply PAYLOAD", "answer with this",
     [](Lexer& in, bool timed) -> Action {
         DemandRequest(timed);
         return [payload = in.Payload()](ResponsePlan& plan) {
             plan.answer = Answer::Fixed;
             plan.fixedAnswer = payload;
         };
     }},
    {"send TYPE,PORT [PAYLOAD]", "one more packet, after the answer; without a payload the request's",
     [](Lexer& in, bool timed) { return SendTo(in.PortAddress(), in, timed); }},
    {"broadcast [PAYLOAD]", "the same to 255,2, which the router hands to every port numbered 2",
     [](Lexer& in, bool timed) { return SendTo(BroadcastAddress, in, timed); }},
    {"delay MS", "answer so long after the request",
     [](Lexer& in, bool) { return Set(&ResponsePlan::delay, in.Milliseconds()); }},
    {"duplicate [N]", "send the answer N times in all (2)",
     [](Lexer& in, bool) {
         return Set(&ResponsePlan::copies, OptionalNumber(in, "count of copies", 1, 1000, 2u));
     }},
    {"corrupt", "first byte of the payload wrong, checksum fitting it",
     [](Lexer&, bool) { return Set(&ResponsePlan::wrongPayload, true); }},
    {"checksum", "wrong checksum", [](Lexer&, bool) { return Set(&ResponsePlan::wrongChecksum, true); }},
    {"number N", "packet number of the answer; the following ones count on from it",
     [](Lexer& in, bool) {
         return Set(&ResponsePlan::packetNumber, in.Number<std::uint8_t>("packet number", 0, 255));
     }},
    {"gap [N]", "leave out N packet numbers (1) before the answer",
     [](Lexer& in, bool) {
         return Set(&ResponsePlan::skippedNumbers, OptionalNumber(in, "count of numbers", 1, 255, 1u));
     }},
    {"garbage N", "N random bytes before the answer",
     [](Lexer& in, bool) { return Set(&ResponsePlan::garbage, in.Number("count of bytes", 1, MostBytes)); }},
    {"raw PAYLOAD", "these bytes, unframed, before the answer",
     [](Lexer& in, bool) { return Set(&ResponsePlan::rawAhead, in.Payload()); }},
    {"split N [MS]", "the answer in writes of N bytes, so long apart (0)",
     [](Lexer& in, bool) -> Action {
         const auto bytes = in.Number("count of bytes", 1, MostBytes);
         return [bytes, gap = OptionalTime(in, Time::zero())](ResponsePlan& plan) {
             plan.splitInto = bytes;
             plan.splitGap = gap;
         };
     }},
    {"merge N [MS]", "hold the answer until N packets are together (at most 100 ms), one write for all",
     [](Lexer& in, bool) -> Action {
         const auto packets = in.Number("count of packets", 2, 10000);
         return [packets, wait = OptionalTime(in, std::chrono::milliseconds(100))](ResponsePlan& plan) {
             plan.mergeOf = packets;
             plan.mergeWait = wait;
         };
     }},
    {"vanish [after N] [back MS]",
     "after N bytes of the answer (half of it) go away as if unplugged; be there again\nafter MS, else never",
     [](Lexer& in, bool) {
         Vanishing vanishing;
         if (in.Accept("after")) {
             vanishing.after = in.Number("count of bytes", 0);
         }
         vanishing.back = Back(in);
         return Set(&ResponsePlan::vanishing, vanishing);
     }},
};

Bytes Text(std::string_view text)
{
    return {text.begin(), text.end()};
}

const Phrase<void(Lexer&, Incident&)> Incidents[] = {
    {"fail", "DOWNLOAD_FAIL", [](Lexer&, Incident& incident) { incident.text = Text("DOWNLOAD_FAIL\r"); }},
    {"ready", "FIRMWARE_READY", [](Lexer&, Incident& incident) { incident.text = Text("FIRMWARE_READY\r"); }},
    {"rebooting [back MS]", "REBOOTING; with \"back\", vanish and be there again after MS",
     [](Lexer& in, Incident& incident) {
         incident.text = Text("REBOOTING\r");
         if (const auto back = Back(in)) {
             incident.vanishing = Vanishing{SIZE_MAX, back};
         }
     }},
    {"silence", "no answer", [](Lexer&, Incident& incident) { incident.ends = false; }},
    {"vanish [back MS]", "no answer, and gone",
     [](Lexer& in, Incident& incident) { incident.vanishing = Vanishing{SIZE_MAX, Back(in)}; }},
    {"answer PAYLOAD", "this", [](Lexer& in, Incident& incident) { incident.text = in.Payload(); }},
};

const Phrase<void(Lexer&, Script&)> Statements[] = {
    {"flood TYPE,PORT SIZE [RATE [COUNT]]",
     "unrequested packets, RATE a second (0, the default: as fast as\n"
     "they are taken), COUNT in all (0, the default: without end); numbered payloads",
     [](Lexer& in, Script& script) {
         Flood& flood = script.flood.emplace();
         flood.to = in.PortAddress();
         flood.payloadLength = in.Number("payload length", 1, MostBytes);
         flood.perSecond = OptionalNumber(in, "rate per second", 0, 1'000'000, flood.perSecond);
         flood.count = OptionalNumber(in, "count of packets", 0, Lexer::Most, flood.count);
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
     [](Lexer& in, Script& script) { script.largestWrite = in.Number("count of bytes", 1, 1'000'000); }},
    {"firmware accept [SIZE]", "answer PREPARE_DOWNLOAD with the announced size and this chunk size (4000)",
     [](Lexer& in, Script& script) {
         script.firmware.prepareAnswer.reset();
         script.firmware.echoOffset = 0;
         // Any number: a foolish one shows what the router makes of it.
         script.firmware.chunkSize =
             OptionalNumber(in, "chunk size", -Lexer::Most, Lexer::Most, script.firmware.chunkSize);
     }},
    {"firmware deny", "answer it with DENY",
     [](Lexer&, Script& script) { script.firmware.prepareAnswer = Text("DENY\r"); }},
    {"firmware wrong-echo", "answer it with a size that is 1 too large",
     [](Lexer&, Script& script) {
         script.firmware.prepareAnswer.reset();
         script.firmware.echoOffset = 1;
     }},
    {"firmware answer PAYLOAD", "answer it with this",
     [](Lexer& in, Script& script) { script.firmware.prepareAnswer = in.Payload(); }},
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
         Demand(Incidents, in, "what happens then").read(in, incident);
         script.firmware.incident = std::move(incident);
     }},
};

Trigger ReadTrigger(Lexer& in)
{
    Trigger trigger;
    if (const auto* const timed = Take(TimeTriggers, in)) {
        timed->read(in, trigger);
    } else {
        Demand(RequestTriggers, in, "a condition").read(in, trigger);
        if (in.Accept("from")) {
            trigger.from = in.PortAddress();
        }
    }
    in.Expect(":");
    return trigger;
}

void ReadLine(Lexer& in, Script& script)
{
    if (in.AtEnd()) {
        return;
    }
    if (const auto* const statement = Take(Statements, in)) {
        statement->read(in, script);
        in.ExpectEnd();
        return;
    }
    Rule rule;
    if (in.Has(":")) {
        rule.trigger = ReadTrigger(in);
    }
    do {
        rule.actions.push_back(Demand(Actions, in, "an action").read(in, rule.trigger.after.has_value()));
    } while (in.Accept(";"));
    in.ExpectEnd();
    script.rules.push_back(std::move(rule));
}

/// A line for each phrase: syntax, and what it means from column 26 on.
template <class Read, std::size_t Count>
std::string HelpOf(const Phrase<Read> (&phrases)[Count], std::size_t indent = 2)
{
    constexpr std::size_t Column = 26;
    std::string text;
    for (const Phrase<Read>& phrase : phrases) {
        std::string line = std::string(indent, ' ') + phrase.syntax;
        line.resize(std::max(line.size() + 2, Column), ' ');
        for (const char* at = phrase.help; *at != '\0'; ++at) {
            line += *at;
            line.append(*at == '\n' ? Column : 0, ' ');
        }
        text += line + '\n';
    }
    return text;
}

} // namespace

std::optional<ScriptError> AddScriptLine(Script& script, std::string_view line)
{
    try {
        Lexer in(line);
        ReadLine(in, script);
        return std::nullopt;
    } catch (const ParseError& wrong) {
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
