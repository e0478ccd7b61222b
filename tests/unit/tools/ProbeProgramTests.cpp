// The built probe, at pipes that the test serves in the router's place (--attach).
#include "client/RouterAutomation.h"
#include "console/SequencedPayload.h"
#include "tests/support/TempFolder.h"
#include "tests/unit/tools/FakePort.h"
#include "tests/unit/tools/ToolRun.h"

#include <gtest/gtest.h>
#include <objbase.h>

#include <atomic>
#include <fstream>

namespace {

/// The probe on one fake port.
struct Probe
{
    Probe(const FakePort& port, const std::wstring& commandAndSwitches)
        : run(L"RouterProbe", L"--attach --port 3,1 --pipe-name " + port.Name() + L" --stop-event " + stop.Name() +
                                  L" " + commandAndSwitches)
    {
    }

    NamedEvent stop{L"ProbeStop"};
    ToolRun run;
};

TEST(ProbeProgram, SendPrintsTheReplyAsAHexDumpWithItsTime)
{
    FakePort port(Echo);
    Probe probe(port, L"send --text \"hello\\r\\n\"");
    EXPECT_EQ(probe.run.ExitCode(), 0);
    EXPECT_TRUE(probe.run.Said("[03,01] reply to request 1 after ")) << probe.run.Output();
    EXPECT_TRUE(probe.run.Said(" ms, 7 bytes\n  0000  68 65 6c 6c 6f 0d 0a")) << probe.run.Output();
    EXPECT_TRUE(probe.run.Said("|hello..|")) << probe.run.Output();
}

TEST(ProbeProgram, SendTakesTextsHexAndFilesInTheirOrder)
{
    const support::TempFolder folder;
    const auto file = folder.Path() / "request.bin";
    std::ofstream(file, std::ios::binary) << std::string(25, 'f');
    std::vector<std::string> got;
    {
        FakePort port([&](const std::string& message) {
            got.push_back(message);
            return FakePort::Replies{message};
        });
        Probe probe(port,
                    L"send --text one --file \"" + file.wstring() + L"\" --size 10 --hex \"00 ff\" --count 2");
        EXPECT_EQ(probe.run.ExitCode(), 0);
    }
    const std::vector<std::string> once = {"one", std::string(10, 'f'), std::string(10, 'f'), std::string(5, 'f'),
                                           std::string("\0\xFF", 2)};
    std::vector<std::string> twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(got, twice);
}

TEST(ProbeProgram, AnEmptyFileIsNothingToSendUnlessSomethingStandsBesideIt)
{
    const support::TempFolder folder;
    const auto file = folder.Path() / "empty.bin";
    std::ofstream(file, std::ios::binary).close();
    FakePort port(Echo);
    const Probe alone(port, L"send --count 0 --file \"" + file.wstring() + L"\"");
    EXPECT_EQ(alone.run.ExitCode(), 2);
    EXPECT_EQ(alone.run.Output(), "RouterProbe: nothing to send: the file is empty\n");
    const Probe beside(port, L"send --text x --quiet --file \"" + file.wstring() + L"\"");
    EXPECT_EQ(beside.run.ExitCode(), 0) << beside.run.Output();
}

TEST(ProbeProgram, AnEventThatCannotBeMadeIsToldInOneLine)
{
    FakePort port(Echo);
    for (const wchar_t* const event : {L"--stop-event", L"--ready-event"}) {
        const ToolRun run(L"RouterProbe", L"send --attach --port 3,1 --text x --pipe-name " + port.Name() + L" " +
                                              event + L" no\\such\\folder");
        EXPECT_EQ(run.ExitCode(), 1);
        EXPECT_EQ(LinesIn(run.Output()), 1u) << run.Output();
        EXPECT_TRUE(run.Said("RouterProbe: the event 'no\\such\\folder' can't be made (error ")) << run.Output();
    }
}

TEST(ProbeProgram, AReplyThatIsLateGivesCode7)
{
    FakePort port([](const std::string&) { return FakePort::Replies{}; });
    Probe probe(port, L"send --text x --reply-timeout 0.1");
    EXPECT_EQ(probe.run.ExitCode(), 7);
    EXPECT_TRUE(probe.run.Said("\nRouterProbe: [03,01] no reply to request 1 within 100 ms\n"))
        << probe.run.Output();
}

TEST(ProbeProgram, AReplyThatIsNotTheRequestGivesCode8WhenItIsChecked)
{
    FakePort port([](const std::string&) { return FakePort::Replies{"something else"}; });
    Probe unchecked(port, L"send --text x");
    EXPECT_EQ(unchecked.run.ExitCode(), 0);
    Probe checked(port, L"send --text x --check");
    EXPECT_EQ(checked.run.ExitCode(), 8);
    EXPECT_TRUE(checked.run.Said("wrong reply to request 1"));
}

TEST(ProbeProgram, SaysWhenAPipeIsOpenUnlessItIsToBeQuiet)
{
    FakePort port(Echo);
    Probe probe(port, L"listen --for 0.1");
    EXPECT_EQ(probe.run.ExitCode(), 0);
    EXPECT_TRUE(probe.run.Said("[03,01] pipe open\n"));
    Probe quiet(port, L"listen --for 0.1 --quiet");
    EXPECT_EQ(quiet.run.ExitCode(), 0);
    EXPECT_FALSE(quiet.run.Said("open"));
}

TEST(ProbeProgram, APipeThatIsNeverServedGivesCode5)
{
    const ToolRun run(L"RouterProbe", L"send --attach --port 3,1 --pipe-name " + support::UniqueName(L"Absent") +
                                          L" --text x --open-timeout 0.1");
    EXPECT_EQ(run.ExitCode(), 5);
    EXPECT_EQ(LinesIn(run.Output()), 1u) << run.Output();
    EXPECT_TRUE(run.Said("does not appear (2): no instrument is connected, "
                         "or the port is registered under another pipe name"))
        << run.Output();
}

TEST(ProbeProgram, APipeThatAnotherClientHasGivesCode6)
{
    FakePort port(Echo);
    NamedEvent ready(L"ProbeReady");
    Probe first(port, L"listen --ready-event " + ready.Name());
    ASSERT_TRUE(ready.Wait());
    Probe second(port, L"send --text x --open-timeout 60");
    EXPECT_EQ(second.run.ExitCode(), 6);
    EXPECT_EQ(LinesIn(second.run.Output()), 1u) << second.run.Output();
    EXPECT_TRUE(second.run.Said("is busy (231): another client holds the port")) << second.run.Output();
    first.stop.Set();
    EXPECT_EQ(first.run.ExitCode(), 0);
}

TEST(ProbeProgram, APipeThatBreaksInTheMiddleGivesCode9)
{
    FakePort port(Echo, {.breaksAtFirst = 0, .breaksAtMessage = 5, .messages = true, .greeting = {}});
    Probe probe(port, L"measure --count 10 --quiet");
    EXPECT_EQ(probe.run.ExitCode(), 9);
    EXPECT_TRUE(probe.run.Said("pipe broke (109): router or instrument gone")) << probe.run.Output();
    EXPECT_TRUE(probe.run.Said("4 answered, 0 lost, 0 twice, 0 wrong, 0 out of order, 1 interrupted"))
        << probe.run.Output();
}

TEST(ProbeProgram, APipeThatBreaksBeforeItServedAnythingIsOpenedAgain)
{
    FakePort port(Echo, {.breaksAtFirst = 2, .breaksAtMessage = 0, .messages = true, .greeting = {}});
    Probe probe(port, L"send --text x");
    EXPECT_EQ(probe.run.ExitCode(), 0) << probe.run.Output();
}

TEST(ProbeProgram, KeepsGoingOverABrokenPipeAndSaysSo)
{
    FakePort port(Echo, {.breaksAtFirst = 0, .breaksAtMessage = 5, .messages = true, .greeting = {}});
    Probe probe(port, L"measure --count 10 --keep-going");
    EXPECT_EQ(probe.run.ExitCode(), 0);
    EXPECT_TRUE(probe.run.Said("gone; waiting for them")) << probe.run.Output();
    EXPECT_TRUE(probe.run.Said("pipe open again")) << probe.run.Output();
    EXPECT_TRUE(probe.run.Said("10 answered, 0 lost, 0 twice, 0 wrong, 0 out of order, 1 interrupted"))
        << probe.run.Output();
}

TEST(ProbeProgram, MeasureFindsEveryEcho)
{
    FakePort port(Echo);
    Probe probe(port, L"measure --count 500 --size 100");
    EXPECT_EQ(probe.run.ExitCode(), 0);
    EXPECT_TRUE(probe.run.Said(
        "[03,01] 500 answered, 0 lost, 0 twice, 0 wrong, 0 out of order, 0 interrupted, 0 unsolicited; "
        "ms min "))
        << probe.run.Output();
}

TEST(ProbeProgram, MeasureCountsWhatIsLostTwiceWrongAndUnsolicited)
{
    int count = 0;
    FakePort port([&](const std::string& message) -> FakePort::Replies {
        std::string wrong = message;
        wrong.back() = static_cast<char>(wrong.back() ^ 1);
        switch (++count) {
        case 2: return {};
        case 4: return {message, message};
        case 6: return {wrong, message};
        case 8: return {"a broadcast", message};
        default: return {message};
        }
    });
    Probe probe(port, L"measure --count 10 --keep-going --reply-timeout 0.2");
    EXPECT_EQ(probe.run.ExitCode(), 8);
    EXPECT_TRUE(
        probe.run.Said("9 answered, 1 lost, 1 twice, 1 wrong, 0 out of order, 0 interrupted, 1 unsolicited"))
        << probe.run.Output();
    EXPECT_TRUE(probe.run.Said("|a broadcast|"));
}

TEST(ProbeProgram, MeasureKnowsALateReplyFromASecondOne)
{
    std::string held;
    FakePort port([&](const std::string& message) -> FakePort::Replies {
        if (held.empty()) {
            held = message;
            return {};
        }
        return {held, message};
    });
    Probe probe(port, L"measure --count 2 --keep-going --reply-timeout 0.2");
    EXPECT_EQ(probe.run.ExitCode(), 7);
    EXPECT_TRUE(probe.run.Said("1 answered, 1 lost, 0 twice, 0 wrong, 1 out of order")) << probe.run.Output();
}

TEST(ProbeProgram, MeasureServesAllPortsAtOnce)
{
    // Each port answers only once the other one has asked, too.
    std::atomic<int> waiting{0};
    const win32::Event both(win32::Event::Kind::ManualReset);
    const auto meet = [&](const std::string& message) {
        if (++waiting == 2) {
            both.Set();
        }
        both.Wait(20'000);
        return FakePort::Replies{message};
    };
    FakePort one(meet);
    FakePort two(meet);
    const ToolRun run(L"RouterProbe", L"measure --attach --count 1 --port 3,1 --port 4,1 --pipe-name " +
                                          one.Name() + L" --pipe-name " + two.Name());
    EXPECT_EQ(run.ExitCode(), 0) << run.Output();
    EXPECT_TRUE(run.Said("[03,01] 1 answered"));
    EXPECT_TRUE(run.Said("[04,01] 1 answered"));
}

TEST(ProbeProgram, MeasureForATimeRunsUntilItIsOver)
{
    FakePort port(Echo);
    Probe probe(port, L"measure --for 1.2");
    EXPECT_EQ(probe.run.ExitCode(), 0) << probe.run.Output();
    EXPECT_TRUE(probe.run.Said("MB/s, so far ")) << "a line a second";
    EXPECT_TRUE(probe.run.Said("summary: 1."));
}

TEST(ProbeProgram, PingPrintsALineForEachEcho)
{
    FakePort port(Echo);
    Probe probe(port, L"ping --count 3 --interval 0.01 --size 20");
    EXPECT_EQ(probe.run.ExitCode(), 0);
    for (const char* line : {"reply 1: 20 bytes in ", "reply 2: ", "reply 3: "}) {
        EXPECT_TRUE(probe.run.Said(line)) << probe.run.Output();
    }
}

TEST(ProbeProgram, ListenPrintsWhatComesAndEndsAfterItsCount)
{
    FakePort port(Echo, {.breaksAtFirst = 0, .breaksAtMessage = 0, .messages = true, .greeting = "welcome"});
    Probe probe(port, L"listen --count 1");
    EXPECT_EQ(probe.run.ExitCode(), 0);
    EXPECT_TRUE(probe.run.Said("[03,01] got 7 bytes\n")) << probe.run.Output();
    EXPECT_TRUE(probe.run.Said("|welcome|"));
}

TEST(ProbeProgram, ListenFindsAFaultInNumberedMessages)
{
    std::vector<std::uint8_t> payload(20);
    sequenced::Fill(payload, 7, 0x0302); // the mark of another port
    FakePort port(Echo, {.breaksAtFirst = 0,
                         .breaksAtMessage = 0,
                         .messages = true,
                         .greeting = std::string(payload.begin(), payload.end())});
    Probe probe(port, L"listen --check --count 1 --quiet");
    EXPECT_EQ(probe.run.ExitCode(), 8);
    EXPECT_TRUE(probe.run.Said("0 lost, 0 twice or out of order, 1 foreign or changed")) << probe.run.Output();
}

TEST(ProbeProgram, LingerPrintsWhatComesAfterTheLastReply)
{
    FakePort port([](const std::string& message) { return FakePort::Replies{message, "one more"}; });
    Probe probe(port, L"send --text x --linger 0.3");
    EXPECT_EQ(probe.run.ExitCode(), 0);
    EXPECT_TRUE(probe.run.Said("|one more|")) << probe.run.Output();
}

TEST(ProbeProgram, AStopFromOutsideIsAGoodEnd)
{
    FakePort port(Echo);
    NamedEvent ready(L"ProbeReady");
    Probe probe(port, L"measure --count 0 --ready-event " + ready.Name());
    ASSERT_TRUE(ready.Wait());
    probe.stop.Set();
    EXPECT_EQ(probe.run.ExitCode(), 0);
    EXPECT_TRUE(probe.run.Said("summary: "));
}

TEST(ProbeProgram, AFileThatCannotBeReadGivesCode10)
{
    const ToolRun run(L"RouterProbe", L"send --port 3,1 --file c:\\nowhere\\request.bin");
    EXPECT_EQ(run.ExitCode(), 10);
    EXPECT_EQ(LinesIn(run.Output()), 1u) << run.Output();
}

TEST(ProbeProgram, WithoutARegisteredRouterTheCodeIs3)
{
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    CLSID ignored{};
    const bool registered = SUCCEEDED(::CLSIDFromProgID(L"MorvanePortRouter.MorvaneUSBRouter.1", &ignored));
    ::CoUninitialize();
    if (registered) {
        GTEST_SKIP() << "the router is registered on this machine";
    }
    for (const wchar_t* binding : {L"", L" --late-bound"}) {
        const ToolRun run(L"RouterProbe", std::wstring(L"send --port 3,1 --text x") + binding);
        EXPECT_EQ(run.ExitCode(), 3);
        EXPECT_EQ(LinesIn(run.Output()), 1u) << run.Output();
        EXPECT_TRUE(run.Said("the router is not registered"));
    }
}

TEST(ProbeProgram, HelpNamesEveryCommandSwitchAndExitCode)
{
    const ToolRun run(L"RouterProbe", L"--help");
    EXPECT_EQ(run.ExitCode(), 0);
    for (const char* name :
         {"send",        "listen",        "ping",           "measure",         "--port",       "--pipe-name",
          "--read-size", "--write-size",  "--late-bound",   "--attach",        "--text",       "--hex",
          "--file",      "--size",        "--count",        "--interval",      "--no-wait",    "--check",
          "--for",       "--linger",      "--open-timeout", "--reply-timeout", "--keep-going", "--wait-exit",
          "--quiet",     "--ready-event", "--stop-event",   "  12  "})
    {
        EXPECT_TRUE(run.Said(name)) << name;
    }
}

class ProbeUsage : public testing::TestWithParam<WrongCommandLine>
{};

TEST_P(ProbeUsage, IsToldInOneLineWithCode2)
{
    ExpectRefused(L"RouterProbe", GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    All, ProbeUsage,
    testing::Values(WrongCommandLine{L"", "a command is missing"},
                    WrongCommandLine{L"fly", "unknown command 'fly'"},
                    WrongCommandLine{L"listen", "--port is missing"},
                    WrongCommandLine{L"listen here --port 3,1", "unexpected argument 'here'"},
                    WrongCommandLine{L"listen --port 3", "'3' is not TYPE,PORT"},
                    WrongCommandLine{L"listen --port 3,-1", "'3,-1' is not TYPE,PORT"},
                    WrongCommandLine{L"listen --port 3,255", "'3,255' is not TYPE,PORT, each from 0 to 254"},
                    WrongCommandLine{L"listen --port 255,1", "'255,1' is not TYPE,PORT, each from 0 to 254"},
                    WrongCommandLine{L"listen --port 3,259 --attach --pipe-name a", "'3,259' is not TYPE,PORT"},
                    WrongCommandLine{L"listen --port -1,1", "'-1,1' is not TYPE,PORT"},
                    WrongCommandLine{L"listen --attach --port 254,254", "--attach needs --pipe-name"},
                    WrongCommandLine{L"listen --port 3,1 --text x", "belong to send"},
                    WrongCommandLine{L"send --port 3,1", "send needs --text, --hex or --file"},
                    WrongCommandLine{L"send --port 3,1 --hex 0", "is not a byte"},
                    WrongCommandLine{L"send --port 3,1 --text \\q", "a text knows only"},
                    WrongCommandLine{L"measure --port 3,1 --size 0", "'0' is not a whole number"},
                    WrongCommandLine{L"measure --port 3,1 --colour", "unknown switch '--colour'"},
                    WrongCommandLine{L"listen --attach --port 3,1", "--attach needs --pipe-name"},
                    WrongCommandLine{L"listen --port 3,1 --pipe-name a --pipe-name b", "once for each --port"}));

} // namespace
