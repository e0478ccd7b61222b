// The built simulator, at a pipe of the test's own.
#include "tests/support/TempFolder.h"
#include "tests/unit/tools/Echoes.h"
#include "tests/unit/tools/RouterEnd.h"
#include "tests/unit/tools/ToolRun.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

std::filesystem::path FileWith(const support::TempFolder& folder, const std::string& content)
{
    auto path = folder.Path() / support::UniqueName(L"file");
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

std::wstring Quoted(const std::filesystem::path& path)
{
    return L"\"" + path.wstring() + L"\"";
}

/// A running simulator and the router's end of its pipe, not open yet.
struct Simulator
{
    explicit Simulator(const std::wstring& switches)
        : run(L"InstrumentSimulator", L"--pipe " + pipe + L" --ready-event " + ready.Name() + L" --stop-event " +
                                          stop.Name() + L" " + switches),
          served(ready.Wait()),
          router(pipe)
    {
    }

    int Stop()
    {
        stop.Set();
        return run.ExitCode();
    }

    const std::wstring pipe = support::UniqueName(L"Simulator");
    NamedEvent ready{L"Ready"};
    NamedEvent stop{L"Stop"};
    ToolRun run;
    bool served;
    RouterEnd router;
};

TEST(SimulatorProgram, EchoesEachRequestToItsSender)
{
    Simulator simulator(L"");
    ASSERT_TRUE(simulator.router.Open());
    ASSERT_NO_FATAL_FAILURE(ExpectEchoesToTheirSenders(simulator.router));
    EXPECT_EQ(simulator.Stop(), 0);
    EXPECT_TRUE(simulator.run.Said("100 requests"));
    EXPECT_TRUE(simulator.run.Said("0 number gaps, 0 wrong checksums, 0 bytes outside packets"));
    EXPECT_TRUE(simulator.run.Said("ended: stopped"));
}

TEST(SimulatorProgram, TheLongestPayloadComesBackWhole)
{
    Simulator simulator(L"--quiet");
    ASSERT_TRUE(simulator.router.Open());
    const std::string payload(65535, '#');
    ASSERT_TRUE(simulator.router.Send(3, 1, payload));
    const auto packet = simulator.router.Next();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->payload, payload);
}

TEST(SimulatorProgram, PrintsOneLineForEachPacket)
{
    Simulator simulator(L"");
    ASSERT_TRUE(simulator.router.Open());
    ASSERT_TRUE(simulator.router.Send(3, 1, "hello"));
    ASSERT_TRUE(simulator.router.WriteBytes(support::Frame(9, 238, 238, 238, "")));
    EXPECT_TRUE(simulator.run.WaitUntilSaid("no   0 type   1 [03,01]     5 bytes 68 65 6c 6c 6f |hello|\n"));
    EXPECT_TRUE(simulator.run.WaitUntilSaid("no   9 type 238 [238,238]     0 bytes || (number gap)\n"));
}

TEST(SimulatorProgram, QuietPrintsNothingButTheSummary)
{
    Simulator simulator(L"--quiet");
    ASSERT_TRUE(simulator.router.Open());
    ASSERT_TRUE(simulator.router.Send(3, 1, "hello"));
    ASSERT_TRUE(simulator.router.Next());
    EXPECT_EQ(simulator.run.Output(), "");
    EXPECT_EQ(simulator.Stop(), 0);
    EXPECT_EQ(simulator.run.Output().find("summary: "), 0u);
}

TEST(SimulatorProgram, TheRouterMayGoAndComeAgain)
{
    Simulator simulator(L"");
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(simulator.router.Open()) << round;
        ASSERT_TRUE(simulator.router.Send(3, 1, "x"));
        const auto packet = simulator.router.Next();
        ASSERT_TRUE(packet) << round;
        EXPECT_EQ(packet->number, 1) << "numbering starts afresh";
        simulator.router.Close();
    }
    EXPECT_EQ(simulator.Stop(), 0);
    EXPECT_TRUE(simulator.run.Said("20 connections"));
    EXPECT_TRUE(simulator.run.Said("router gone"));
}

TEST(SimulatorProgram, VanishesInMidPacketAndComesBack)
{
    Simulator simulator(L"--do \"request 2: vanish back 100\"");
    ASSERT_TRUE(simulator.router.Open());
    ASSERT_TRUE(simulator.router.Send(3, 1, "first"));
    ASSERT_TRUE(simulator.router.Next());
    ASSERT_TRUE(simulator.router.Send(3, 1, "second"));
    EXPECT_FALSE(simulator.router.Next()) << "the pipe breaks before the packet is whole";
    EXPECT_EQ(simulator.router.Unparsed(), 10u) << "half of the 20 bytes came";
    ASSERT_TRUE(simulator.router.Open());
    ASSERT_TRUE(simulator.router.Send(3, 1, "third"));
    const auto packet = simulator.router.Next();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->payload, "third");
    EXPECT_TRUE(simulator.run.Said("instrument vanished"));
    EXPECT_TRUE(simulator.run.Said("instrument back"));
}

TEST(SimulatorProgram, SplitsAPacketIntoWritesThatAreApart)
{
    Simulator simulator(L"--do \"split 7 20\"");
    ASSERT_TRUE(simulator.router.Open());
    ASSERT_TRUE(simulator.router.Send(3, 1, "abcdef"));
    EXPECT_EQ(simulator.router.ReadPiece().size(), 7u);
    EXPECT_EQ(simulator.router.ReadPiece().size(), 7u);
    EXPECT_EQ(simulator.router.ReadPiece().size(), 6u);
}

TEST(SimulatorProgram, MergesPacketsIntoOneWrite)
{
    Simulator simulator(L"--do \"merge 3 10000\"");
    ASSERT_TRUE(simulator.router.Open());
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(simulator.router.Send(3, 1, "x"));
    }
    EXPECT_EQ(simulator.router.ReadPiece().size(), 3 * 15u);
}

TEST(SimulatorProgram, AnswersAfterTheDelayAndNotBefore)
{
    Simulator simulator(L"--do \"delay 60\"");
    ASSERT_TRUE(simulator.router.Open());
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(simulator.router.Send(3, 1, "x"));
    ASSERT_TRUE(simulator.router.Next());
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
}

TEST(SimulatorProgram, FloodsAPortWithNumberedPackets)
{
    Simulator simulator(L"--quiet --do \"flood 3,1 100 0 5000\"");
    ASSERT_TRUE(simulator.router.Open());
    for (int i = 1; i <= 5000; ++i) {
        const auto packet = simulator.router.Next();
        ASSERT_TRUE(packet) << i;
        ASSERT_EQ(packet->number, i % 256);
        ASSERT_EQ(packet->payload.size(), 100u);
    }
}

TEST(SimulatorProgram, ASinkTakesManyPacketsWithoutAnswer)
{
    Simulator simulator(L"--quiet --do \"silence\" --requests 2000");
    ASSERT_TRUE(simulator.router.Open());
    for (int i = 0; i < 2000; ++i) {
        ASSERT_TRUE(simulator.router.Send(3, 1, std::string(1000, 'x')));
    }
    EXPECT_EQ(simulator.run.ExitCode(), 0);
    EXPECT_TRUE(simulator.run.Said("2000 requests"));
    EXPECT_TRUE(simulator.run.Said("sent: 0 answers"));
}

TEST(SimulatorProgram, TheLastAnswerCanBeReadAfterTheRequestsAreOver)
{
    Simulator simulator(L"--requests 3 --do \"delay 5\"");
    ASSERT_TRUE(simulator.router.Open());
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(simulator.router.Send(3, 1, "x"));
    }
    EXPECT_EQ(simulator.run.ExitCode(), 0);
    EXPECT_TRUE(simulator.run.Said("ended: enough requests"));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(simulator.router.Next()) << i;
    }
    EXPECT_FALSE(simulator.router.Next());
}

TEST(SimulatorProgram, EndsWhenItsTimeIsOver)
{
    Simulator simulator(L"--for 0.2");
    EXPECT_EQ(simulator.run.ExitCode(), 0);
    EXPECT_TRUE(simulator.run.Said("ended: time over"));
}

TEST(SimulatorProgram, EndsWhenStoppedWhileItIsAway)
{
    Simulator simulator(L"--do \"request 1: vanish back 1000000\"");
    ASSERT_TRUE(simulator.router.Open());
    ASSERT_TRUE(simulator.router.Send(3, 1, "x"));
    EXPECT_FALSE(simulator.router.Next());
    EXPECT_EQ(simulator.Stop(), 0);
}

TEST(SimulatorProgram, ASecondOneAtTheSamePipeEndsWithCode3)
{
    Simulator simulator(L"");
    ASSERT_TRUE(simulator.served);
    const ToolRun second(L"InstrumentSimulator", L"--quiet --pipe " + simulator.pipe);
    EXPECT_EQ(second.ExitCode(), 3);
    EXPECT_EQ(LinesIn(second.Output()), 1u) << second.Output();
    EXPECT_TRUE(second.Said("is served by another program already"));
    ASSERT_TRUE(simulator.router.Open()) << "the first one is not disturbed";
}

TEST(SimulatorProgram, ScriptFilesAndLinesApplyInTheirOrder)
{
    const support::TempFolder folder;
    const auto script = FileWith(folder, "# all but the second are silent\nsilence\nrequest 2: reply \"two\"\r\n");
    Simulator simulator(L"--script " + Quoted(script) + L" --do \"request 3: reply 33\"");
    ASSERT_TRUE(simulator.router.Open());
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(simulator.router.Send(3, 1, "x"));
    }
    EXPECT_EQ(simulator.router.Next().value().payload, "two");
    EXPECT_EQ(simulator.router.Next().value().payload, "3");
}

/// Downloads `image` in chunks as the router does; the simulator's exit code.
int DownloadInto(Simulator& simulator, const std::string& image)
{
    RouterEnd& router = simulator.router;
    EXPECT_TRUE(router.Open());
    router.Send(0, 0, "PREPARE_DOWNLOAD " + std::to_string(image.size()) + "\r");
    EXPECT_EQ(router.Next().value().payload, "RECEIVE_READY " + std::to_string(image.size()) + " 1000\r");
    for (std::size_t at = 0; at < image.size(); at += 990) {
        router.Send(0, 0, "DOWNLOAD " + image.substr(at, 990));
        EXPECT_EQ(router.Next().value().payload, "DOWNLOAD_OK\r");
    }
    router.Send(0, 0, std::string("DOWNLOAD_DONE\r\0", 15));
    EXPECT_EQ(router.Next().value().payload, "DOWNLOAD_OK\r");
    return simulator.Stop();
}

std::string Image()
{
    std::string image;
    for (int i = 0; i < 10'000; ++i) {
        image.push_back(static_cast<char>(i * 7 + i / 256));
    }
    return image;
}

TEST(SimulatorProgram, RebuildsADownloadedImageAndFindsItTheSame)
{
    const support::TempFolder folder;
    Simulator simulator(L"--do \"firmware accept 1000\" --firmware-expect " + Quoted(FileWith(folder, Image())));
    EXPECT_EQ(DownloadInto(simulator, Image()), 0);
    EXPECT_TRUE(simulator.run.Said("10000 of 10000 bytes in 11 chunks, 100.0 %"));
    EXPECT_TRUE(simulator.run.Said("the same as expected"));
    EXPECT_TRUE(simulator.run.Said("1 downloads came whole"));
}

TEST(SimulatorProgram, ADifferentImageGivesCode6)
{
    const support::TempFolder folder;
    std::string other = Image();
    other[1234] ^= 1;
    Simulator simulator(L"--do \"firmware accept 1000\" --firmware-expect " + Quoted(FileWith(folder, other)));
    EXPECT_EQ(DownloadInto(simulator, Image()), 6);
    EXPECT_TRUE(simulator.run.Said("different from offset 1234"));
}

TEST(SimulatorProgram, NoImageAtAllGivesCode6)
{
    const support::TempFolder folder;
    Simulator simulator(L"--firmware-expect " + Quoted(FileWith(folder, Image())));
    EXPECT_EQ(simulator.Stop(), 6);
}

TEST(SimulatorProgram, AnEventThatCannotBeMadeIsToldInOneLine)
{
    for (const wchar_t* const event : {L"--stop-event", L"--ready-event"}) {
        const ToolRun run(L"InstrumentSimulator",
                          L"--pipe " + support::UniqueName(L"NoEvent") + L" " + event + L" no\\such\\folder");
        EXPECT_EQ(run.ExitCode(), 1);
        EXPECT_EQ(LinesIn(run.Output()), 1u) << run.Output();
        EXPECT_TRUE(run.Said("InstrumentSimulator: the event 'no\\such\\folder' can't be made (error "))
            << run.Output();
    }
}

TEST(SimulatorProgram, AnExpectedImageThatCannotBeReadGivesCode5)
{
    const ToolRun run(L"InstrumentSimulator", L"--firmware-expect c:\\nowhere\\image.out");
    EXPECT_EQ(run.ExitCode(), 5);
    EXPECT_EQ(LinesIn(run.Output()), 1u);
}

TEST(SimulatorProgram, HelpNamesEverySwitchAndPhrase)
{
    const ToolRun run(L"InstrumentSimulator", L"--help");
    EXPECT_EQ(run.ExitCode(), 0);
    for (const char* name :
         {"--for", "--requests", "--quiet", "--pipe", "--ready-event", "--stop-event", "--help", "--script",
          "--do", "--firmware-expect", "Exit codes", "chance P", "garbage N",
          "flood TYPE,PORT SIZE [RATE [COUNT]]", "firmware at WHERE WHAT", "rebooting [back MS]"})
    {
        EXPECT_TRUE(run.Said(name)) << name;
    }
}

class SimulatorUsage : public testing::TestWithParam<WrongCommandLine>
{};

TEST_P(SimulatorUsage, IsToldInOneLineWithCode2)
{
    ExpectRefused(L"InstrumentSimulator", GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    All, SimulatorUsage,
    testing::Values(WrongCommandLine{L"--colour", "unknown switch '--colour'"},
                    WrongCommandLine{L"echo", "unexpected argument 'echo'"},
                    WrongCommandLine{L"--do", "'--do' needs a value"},
                    WrongCommandLine{L"--do \"delay soon\"", "'soon' is not a time"},
                    WrongCommandLine{L"--quiet=yes", "takes no value"},
                    WrongCommandLine{L"--for ever", "'ever' is not a number of seconds"},
                    WrongCommandLine{L"--requests 0", "'0' is not a whole number"},
                    WrongCommandLine{L"--pipe=", "a name is missing"},
                    WrongCommandLine{L"--do \"fly away\"", "'fly' is not an action"},
                    WrongCommandLine{L"--do \"flood 3\"", "'3' is not a port address"},
                    WrongCommandLine{L"--do \"request 0: vanish\"", "'0' is not a request number"},
                    WrongCommandLine{L"--do \"every 5: garbage many\"", "'many' is not a count of bytes"},
                    WrongCommandLine{L"--do \"firmware explode\"", "'firmware' must be followed by one of"},
                    WrongCommandLine{L"--script c:\\nowhere\\script.txt", "can't be read"}));

TEST(SimulatorUsageOfScripts, AWrongScriptLineIsNamedWithItsFileAndNumber)
{
    const support::TempFolder folder;
    const auto script = FileWith(folder, "echo\ndelay 5\nevery: gap\n");
    const ToolRun run(L"InstrumentSimulator", L"--script " + Quoted(script));
    EXPECT_EQ(run.ExitCode(), 2);
    EXPECT_EQ(LinesIn(run.Output()), 1u);
    EXPECT_TRUE(run.Said(", line 3: count of requests is missing")) << run.Output();
}

} // namespace
