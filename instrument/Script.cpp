// The script language: each of its phrases is one entry of a table, which reads it and explains it.
#include "instrument/Script.h"

#include "instrument/Lexer.h"

#include <algorithm>
#include <utility>

namespace instrument {

namespace {

using Answer = ResponsePlan::Answer;
using Incident = FirmwareScript::Incident;

constexpr std::int64_t MostBytes = 65535;

/// What a part of a line does to its target: read once, done whenever the rule applies.
template <class Target>
using Change = std::function<void(Target&)>;
template <class Target>
using Part = std::function<Change<Target>(Lexer&)>;

/// The words of `syntax` in lower case stand in the line as they are; the parts read what follows them.
template <class Target>
struct Phrase
{
    const char* syntax;
    const char* help;
    std::vector<Part<Target>> parts;

    template <class... Parts>
    Phrase(const char* words, const char* meaning, Parts... each)
        : syntax(words), help(meaning), parts{std::move(each)...}
    {
    }

    Change<Target> Read(Lexer& in) const
    {
        std::vector<Change<Target>> changes;
        std::ranges::transform(parts, std::back_inserter(changes), [&](const auto& part) { return part(in); });
        return [=](Target& target) { std::ranges::for_each(changes, [&](const auto& each) { each(target); }); };
    }
};

/// Reads nothing and sets a field.
template <class Target, class Value>
Part<Target> Set(Value Target::* field, const std::type_identity_t<Value>& value)
{
    return [=](Lexer&) { return [=](Target& target) { target.*field = value; }; };
}

/// Sets a field to what `read` takes from the line.
template <class Target, class Value, class Read>
Part<Target> Take(Value Target::* field, Read read)
{
    return [=](Lexer& in) {
        const auto value = static_cast<Value>(std::invoke(read, in));
        return [=](Target& target) { target.*field = value; };
    };
}

/// The same, unless the action ends here.
template <class Target, class Value, class Read>
Part<Target> MayTake(Value Target::* field, Read read)
{
    return [part = Take(field, read)](Lexer& in) {
        return in.AtEndOfAction() ? Change<Target>([](Target&) {}) : part(in);
    };
}

auto Number(const char* what, std::int64_t least, std::int64_t most = Lexer::Most)
{
    return [=](Lexer& in) { return in.Number(what, least, most); };
}

constexpr auto Milliseconds = &Lexer::Milliseconds;
constexpr auto Payload = &Lexer::Payload;

Bytes Text(std::string_view text)
{
    return {text.begin(), text.end()};
}

using When = Phrase<Trigger>;

const std::vector<When> RequestTriggers = {
    When("always", "the default"),
    When("request N", "the N-th",
         [](Lexer& in) {
             const auto number = static_cast<std::uint64_t>(in.Number("request number", 1));
             return [=](Trigger& trigger) { trigger.first = trigger.last = number; };
         }),
    When("requests N to M", "from the N-th to the M-th; \"requests N on\": from the N-th on",
         Take(&Trigger::first, Number("request number", 1)),
         Take(&Trigger::last,
              [](Lexer& in) {
                  return in.Accept("to") ? in.Number("request number", 1) : (in.Expect("on"), Lexer::Most);
              })),
    When("every N", "each N-th", Take(&Trigger::every, Number("count of requests", 1))),
    When("chance P", "P percent of them, drawn by \"seed\"",
         Take(&Trigger::percent, Number("chance in percent", 0, 100))),
    When("from TYPE,PORT", "only of that port; also after any of the above",
         Take(&Trigger::from, &Lexer::PortAddress)),
};

const std::vector<When> TimeTriggers = {
    When("connected", "as soon as the router is connected", Set(&Trigger::after, Time::zero())),
    When("after MS", "once, so long after the connection", Take(&Trigger::after, Milliseconds)),
    When("each MS", "again and again, so long after the connection and after each other",
         Set(&Trigger::repeats, true),
         Take(&Trigger::after,
              [](Lexer& in) {
                  const Time time = in.Milliseconds();
                  return time != Time::zero() ? time : throw ParseError("'each' needs a time above 0");
              })),
};

Change<ResponsePlan> SendTo(Address to, Lexer& in)
{
    const auto payload = in.AtEndOfAction() ? std::nullopt : std::optional(in.Payload());
    return [=](ResponsePlan& plan) { plan.extras.push_back({to, payload}); };
}

/// "[after N] [back MS]"; without "after" `after` bytes.
Vanishing ReadVanishing(Lexer& in, std::optional<std::size_t> after)
{
    if (!after && in.Accept("after")) {
        after = in.Number("count of bytes", 0);
    }
    return {after, in.Accept("back") ? std::optional(in.Milliseconds()) : std::nullopt};
}

using Plan = ResponsePlan;
using Does = Phrase<Plan>;

const std::vector<Does> Actions = {
    Does("echo", "answer with the request's payload, to its sender (the default)",
         Set(&Plan::answer, Answer::Echo)),
    Does("silence", "don't answer", Set(&Plan::answer, Answer::None)),
    Does("reply PAYLOAD", "answer with this", Set(&Plan::answer, Answer::Fixed),
         Take(&Plan::fixedAnswer, Payload)),
    Does("send TYPE,PORT [PAYLOAD]", "one more packet, after the answer; without a payload the request's",
         [](Lexer& in) { return SendTo(in.PortAddress(), in); }),
    Does("broadcast [PAYLOAD]", "the same to 255,2, which the router hands to every port numbered 2",
         [](Lexer& in) { return SendTo({255, 2}, in); }),
    Does("delay MS", "answer so long after the request", Take(&Plan::delay, Milliseconds)),
    Does("duplicate [N]", "send the answer N times in all (2)", Set(&Plan::copies, 2),
         MayTake(&Plan::copies, Number("count of copies", 1, 1000))),
    Does("corrupt", "first byte of the payload wrong, checksum fitting it", Set(&Plan::wrongPayload, true)),
    Does("checksum", "wrong checksum", Set(&Plan::wrongChecksum, true)),
    Does("number N", "packet number of the answer; the following ones count on from it",
         Take(&Plan::packetNumber, Number("packet number", 0, 255))),
    Does("gap [N]", "leave out N packet numbers (1) before the answer", Set(&Plan::skippedNumbers, 1),
         MayTake(&Plan::skippedNumbers, Number("count of numbers", 1, 255))),
    Does("garbage N", "N random bytes before the answer",
         Take(&Plan::garbage, Number("count of bytes", 1, MostBytes))),
    Does("raw PAYLOAD", "these bytes, unframed, before the answer", Take(&Plan::rawAhead, Payload)),
    Does("split N [MS]", "the answer in writes of N bytes, so long apart (0)",
         Take(&Plan::splitInto, Number("count of bytes", 1, MostBytes)), Set(&Plan::splitGap, Time::zero()),
         MayTake(&Plan::splitGap, Milliseconds)),
    Does("merge N [MS]", "hold the answer until N packets are together (at most 100 ms), one write for all",
         Take(&Plan::mergeOf, Number("count of packets", 2, 10000)),
         Set(&Plan::mergeWait, std::chrono::milliseconds(100)), MayTake(&Plan::mergeWait, Milliseconds)),
    Does("vanish [after N] [back MS]",
         "after N bytes of the answer (half of it) go away as if unplugged; be there again\nafter MS, else never",
         Take(&Plan::vanishing, [](Lexer& in) { return ReadVanishing(in, std::nullopt); })),
};

using Instead = Phrase<Incident>;

Vanishing VanishAfterAnswer(Lexer& in)
{
    return ReadVanishing(in, SIZE_MAX);
}

const std::vector<Instead> Incidents = {
    Instead("fail", "DOWNLOAD_FAIL", Set(&Incident::text, Text("DOWNLOAD_FAIL\r"))),
    Instead("ready", "FIRMWARE_READY", Set(&Incident::text, Text("FIRMWARE_READY\r"))),
    Instead("rebooting [back MS]", "REBOOTING; with \"back\", vanish and be there again after MS",
            Set(&Incident::text, Text("REBOOTING\r")), MayTake(&Incident::vanishing, VanishAfterAnswer)),
    Instead("silence", "no answer", Set(&Incident::ends, false)),
    Instead("vanish [back MS]", "no answer, and gone", Take(&Incident::vanishing, VanishAfterAnswer)),
    Instead("answer PAYLOAD", "this", Take(&Incident::text, Payload)),
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
template <class Target>
const Phrase<Target>* Find(const std::vector<Phrase<Target>>& phrases, Lexer& in)
{
    std::string continuations;
    for (const Phrase<Target>& phrase : phrases) {
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
    return continuations.empty()
             ? nullptr
             : throw ParseError("'" + in.Next("") + "' must be followed by one of: " + continuations);
}

template <class Target>
Change<Target> Read(const std::vector<Phrase<Target>>& phrases, Lexer& in, const std::string& what)
{
    const Phrase<Target>* const phrase = Find(phrases, in);
    return phrase != nullptr ? phrase->Read(in) : throw ParseError("'" + in.Next(what) + "' is not " + what);
}

Flood ReadFlood(Lexer& in)
{
    static const Phrase<Flood> parts("", "", Take(&Flood::to, &Lexer::PortAddress),
                                     Take(&Flood::payloadLength, Number("payload length", 1, MostBytes)),
                                     MayTake(&Flood::perSecond, Number("rate per second", 0, 1'000'000)),
                                     MayTake(&Flood::count, Number("count of packets", 0)));
    Flood flood;
    parts.Read(in)(flood);
    return flood;
}

Incident ReadIncident(Lexer& in)
{
    Incident incident;
    incident.at =
        in.Accept("done") ? FirmwareScript::AtDone : static_cast<std::uint64_t>(in.Number("chunk number", 1));
    Read(Incidents, in, "what happens then")(incident);
    return incident;
}

using States = Phrase<Script>;

const std::vector<States> Statements = {
    States("flood TYPE,PORT SIZE [RATE [COUNT]]",
           "unrequested packets, RATE a second (0, the default: as fast as\n"
           "they are taken), COUNT in all (0, the default: without end); numbered payloads",
           Take(&Script::flood, ReadFlood)),
    States("numbers from N",
           "the first packet number of a connection (1); the router reports the 0 after 255 as a gap",
           Set(&Script::numbersAreZero, false), Take(&Script::firstNumber, Number("packet number", 0, 255))),
    States("numbers zero", "every packet numbered 0, with which the router never finds fault",
           Set(&Script::numbersAreZero, true)),
    States("seed N", "of \"chance\" and \"garbage\" (1)", Take(&Script::seed, Number("seed", 0, UINT32_MAX))),
    States("write N", "at most N bytes in one write (65535)",
           Take(&Script::largestWrite, Number("count of bytes", 1, 1'000'000))),
};

using Firmware = FirmwareScript;
using Boots = Phrase<Firmware>;

// A chunk size may be any number: a foolish one shows what the router makes of it.
const std::vector<Boots> FirmwareStatements = {
    Boots("firmware accept [SIZE]", "answer PREPARE_DOWNLOAD with the announced size and this chunk size (4000)",
          Set(&Firmware::prepareAnswer, std::nullopt), Set(&Firmware::echoOffset, 0),
          MayTake(&Firmware::chunkSize, Number("chunk size", -Lexer::Most))),
    Boots("firmware deny", "answer it with DENY", Set(&Firmware::prepareAnswer, Text("DENY\r"))),
    Boots("firmware wrong-echo", "answer it with a size that is 1 too large",
          Set(&Firmware::prepareAnswer, std::nullopt), Set(&Firmware::echoOffset, 1)),
    Boots("firmware answer PAYLOAD", "answer it with this", Take(&Firmware::prepareAnswer, Payload)),
    Boots("firmware unanswered N", "don't answer the first N of them",
          Take(&Firmware::unansweredPrepares, Number("count of messages", 0))),
    Boots("firmware delay MS", "before each answer of the bootloader", Take(&Firmware::delay, Milliseconds)),
    Boots("firmware quiet", "don't answer chunks, only the closing message", Set(&Firmware::answersChunks, false)),
    Boots("firmware at WHERE WHAT",
          "WHERE: the number of a chunk, counted from 1, or \"done\", the closing message. Once:",
          Take(&Firmware::incident, ReadIncident)),
};

Trigger ReadTrigger(Lexer& in)
{
    Trigger trigger;
    if (const auto* const timed = Find(TimeTriggers, in)) {
        timed->Read(in)(trigger);
    } else {
        Read(RequestTriggers, in, "a condition")(trigger);
        if (in.Accept("from")) {
            trigger.from = in.PortAddress();
        }
    }
    in.Expect(":");
    return trigger;
}

/// Without a request there is nothing to answer and no payload to send on.
void CheckTimedRule(const Rule& rule)
{
    ResponsePlan plan;
    plan.answer = Answer::None;
    rule.Apply(plan);
    if (plan.answer != Answer::None) {
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
    do {
        rule.actions.push_back(Read(Actions, in, "an action"));
    } while (in.Accept(";"));
    if (rule.trigger.after) {
        CheckTimedRule(rule);
    }
    return rule;
}

/// A line for each phrase: syntax, and what it means from column 26 on.
template <class Target>
std::string HelpOf(const std::vector<Phrase<Target>>& phrases, std::size_t indent = 2)
{
    constexpr std::size_t Column = 26;
    std::string text;
    for (const Phrase<Target>& phrase : phrases) {
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

bool Trigger::Matches(std::uint64_t number, Address sender, std::minstd_rand& random) const
{
    return !after && (!from || *from == sender) && number >= first && number <= last && number % every == 0 &&
           (!percent || random() % 100 < *percent);
}

void Rule::Apply(ResponsePlan& plan) const
{
    for (const Action& action : actions) {
        action(plan);
    }
}

std::optional<ScriptError> AddScriptLine(Script& script, std::string_view line)
{
    try {
        Lexer in(line);
        Change<Script> change = [](Script&) {};
        if (const auto* const statement = Find(Statements, in)) {
            change = statement->Read(in);
        } else if (const auto* const firmware = Find(FirmwareStatements, in)) {
            change = [of = firmware->Read(in)](Script& all) { of(all.firmware); };
        } else if (!in.AtEnd()) {
            change = [rule = ReadRule(in)](Script& all) { all.rules.push_back(rule); };
        }
        in.ExpectEnd();
        change(script);
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
           HelpOf(FirmwareStatements) + HelpOf(Incidents, 6);
}

} // namespace instrument
