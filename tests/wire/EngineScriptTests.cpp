// The script language: what it takes and what it says about what it does not take.
#include "tests/wire/EngineRouter.h"

using namespace enginetest;

namespace {

std::string ErrorOf(std::string_view line)
{
    instrument::Script script;
    return AddScriptLine(script, line).value_or("");
}

/// What the only rule of that line makes of a request.
instrument::ResponsePlan PlanOf(std::string_view line)
{
    const instrument::Script script = ScriptOf(line);
    instrument::ResponsePlan plan;
    EXPECT_EQ(script.rules.size(), 1u);
    script.rules.at(0).Apply(plan);
    return plan;
}

TEST(EngineScript, EmptyLinesAndCommentsChangeNothing)
{
    const auto script = ScriptOf("\n  \t\r\n# a comment: with; everything \"in it\n   # another\n");
    EXPECT_TRUE(script.rules.empty());
    EXPECT_FALSE(script.flood);
}

TEST(EngineScript, ACommentMayFollowALine)
{
    EXPECT_EQ(ScriptOf("delay 5 # ms").rules.size(), 1u);
    EXPECT_EQ(PlanOf("reply \"#1\"").fixedAnswer, Text("#1"));
}

TEST(EngineScript, SeveralActionsMakeOneRule)
{
    const auto script = ScriptOf("every 10 from 3,1: delay 2.5; checksum ; broadcast \"a;b:c\"");
    ASSERT_EQ(script.rules.size(), 1u);
    EXPECT_EQ(script.rules[0].actions.size(), 3u);
    EXPECT_EQ(script.rules[0].trigger.from, (Address{3, 1}));
    instrument::ResponsePlan plan;
    script.rules[0].Apply(plan);
    EXPECT_EQ(plan.delay, Time(2500));
    EXPECT_TRUE(plan.wrongChecksum);
    ASSERT_EQ(plan.extras.size(), 1u);
    EXPECT_EQ(plan.extras[0].payload, Text("a;b:c"));
}

TEST(EngineScript, TextsKnowTheirEscapes)
{
    EXPECT_EQ(PlanOf(R"(reply "\r\n\t\0\\\"\x41z")").fixedAnswer,
              (Bytes{'\r', '\n', '\t', 0, '\\', '"', 'A', 'z'}));
    EXPECT_EQ(PlanOf("reply \"\"").fixedAnswer, Bytes());
}

TEST(EngineScript, HexMayBeWrittenTogetherOrApart)
{
    EXPECT_EQ(PlanOf("reply 00ffA5 5a").fixedAnswer, (Bytes{0, 0xFF, 0xA5, 0x5A}));
}

TEST(EngineScript, AnErrorNamesItsLine)
{
    instrument::Script script;
    EXPECT_EQ(AddScriptText(script, "echo\n\nfly away\n"), "line 3: 'fly' is not an action");
}

TEST(EngineScript, TheHelpNamesEveryWordOfTheLanguage)
{
    const std::string help(instrument::ScriptHelp());
    for (const char* word :
         {"always",       "request ",  "requests ", "every",    "chance",  "from",       "connected",
          "after",        "each",      "echo",      "silence",  "reply",   "send",       "broadcast",
          "delay",        "duplicate", "corrupt",   "checksum", "number ", "gap",        "garbage",
          "raw",          "split",     "merge",     "vanish",   "back",    "flood",      "numbers from",
          "numbers zero", "seed",      "write",     "accept",   "deny",    "wrong-echo", "answer",
          "unanswered",   "quiet",     "done",      "fail",     "ready",   "rebooting"})
    {
        EXPECT_NE(help.find(word), std::string::npos) << word;
    }
}

struct BadLine
{
    const char* line;
    const char* says; // part of the message
};

class EngineScriptError : public testing::TestWithParam<BadLine>
{};

TEST_P(EngineScriptError, IsSaidInOneLine)
{
    const std::string error = ErrorOf(GetParam().line);
    EXPECT_NE(error.find(GetParam().says), std::string::npos) << GetParam().line << " -> " << error;
    EXPECT_EQ(error.find('\n'), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineScriptError,
    testing::Values(
        BadLine{"fly", "'fly' is not an action"}, BadLine{"sometimes: echo", "'sometimes' is not a condition"},
        BadLine{"request 0: echo", "'0' is not a request number"}, BadLine{"request: echo", "is missing"},
        BadLine{"requests 3: echo", "'on' is missing"}, BadLine{"every -1: echo", "'-1' is not"},
        BadLine{"chance 101: echo", "'101' is not"}, BadLine{"from 3: echo", "not a port address"},
        BadLine{"from 256,1: echo", "'256' is not a device type"}, BadLine{"each 0: broadcast 00", "above 0"},
        BadLine{"each 5: echo", "needs a request"}, BadLine{"each 5: broadcast", "needs a payload"},
        BadLine{"echo echo", "'echo' is too much"}, BadLine{"echo;", "an action is missing"},
        BadLine{"delay", "milliseconds is missing"}, BadLine{R"(delay "5")", "milliseconds is missing"},
        BadLine{"delay x", "'x' is not a time"}, BadLine{"delay -1", "'-1' is not a time"},
        BadLine{"delay nan", "'nan' is not a time"}, BadLine{"delay 1e9", "'1e9' is not a time"},
        BadLine{"delay 99999999999", "is not a time"}, BadLine{"reply", "payload is missing"},
        BadLine{"reply 0", "'0' is not a byte"}, BadLine{"reply 0g", "'0g' is not a byte"},
        BadLine{"reply \"abc", "does not end"}, BadLine{"reply \"abc\\", "does not end"},
        BadLine{"reply \"\\q\"", "a text knows only"}, BadLine{"reply \"\\x4\"", "is not a byte"},
        BadLine{"number 256", "'256' is not a packet number"}, BadLine{"split 0", "'0' is not"},
        BadLine{"merge 1", "'1' is not"}, BadLine{"vanish behind 3", "'behind' is too much"},
        BadLine{"flood 3,1", "payload length is missing"}, BadLine{"flood 3,1 0", "'0' is not a payload length"},
        BadLine{"flood 3,1 65536", "'65536' is not"},
        BadLine{"numbers", "'numbers' must be followed by one of: from, zero"},
        BadLine{"numbers zero 1", "'1' is too much"}, BadLine{"write 0", "'0' is not"},
        BadLine{"seed", "seed is missing"}, BadLine{"firmware", "must be followed by one of: accept, deny"},
        BadLine{"firmware accept many", "'many' is not a chunk size"},
        BadLine{"firmware at 0 fail", "'0' is not a chunk number"},
        BadLine{"firmware at done", "what happens then is missing"},
        BadLine{"firmware at 3 explode", "'explode' is not what happens then"},
        BadLine{"request 99999999999999999999: echo", "is not a request number"}));

TEST(EngineScript, AnyBytesAsALineGiveARuleOrAnError)
{
    std::minstd_rand random(42);
    const std::string_view alphabet = "echo split vanish 0123456789,:;#\"\\x \t\xff\x01-.flood firmware at done";
    for (int round = 0; round < 5000; ++round) {
        std::string line;
        for (std::size_t left = random() % 40; left > 0; --left) {
            line.push_back(alphabet[random() % alphabet.size()]);
        }
        instrument::Script script;
        const auto error = AddScriptLine(script, line);
        EXPECT_TRUE(!error || !error->empty()) << line;
    }
}

} // namespace
