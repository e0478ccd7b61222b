// The built InstrumentBus, with the product's own usb/ as the router.
#include "tests/instrument/InstrumentControl.h"
#include "tests/instrument/InstrumentDriver.h"
#include "tests/unit/bus/UsbRouterEnd.h"
#include "tests/unit/tools/Echoes.h"
#include "tests/unit/tools/ToolRun.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

/// A running bus whose device is plugged in, and the router's end of it, not open yet.
struct Bus
{
    explicit Bus(const std::wstring& switches)
        : run(L"InstrumentBus",
              L"--ready-event " + ready.Name() + L" --stop-event " + stop.Name() + L" " + switches),
          plugged(ready.Wait())
    {
    }

    // Not killed: see tests/instrument/README.md.
    ~Bus() { Stop(); }

    int Stop()
    {
        stop.Set();
        return run.ExitCode();
    }

    NamedEvent ready{L"Ready"};
    NamedEvent stop{L"Stop"};
    ToolRun run;
    bool plugged;
    UsbRouterEnd router;
};

std::size_t CountOf(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

TEST(BusProgram, EchoesEachRequestToItsSender)
{
    Bus bus(L"");
    ASSERT_TRUE(bus.router.Open());
    ASSERT_NO_FATAL_FAILURE(ExpectEchoesToTheirSenders(bus.router));
    EXPECT_EQ(bus.Stop(), 0);
    EXPECT_TRUE(bus.run.Said("1 connections"));
    EXPECT_TRUE(bus.run.Said("100 requests"));
    EXPECT_TRUE(bus.run.Said("0 number gaps, 0 wrong checksums, 0 bytes outside packets"));
    EXPECT_TRUE(bus.run.Said("ended: stopped"));
}

TEST(BusProgram, PrintsOneLineForEachPacketAndEachComingAndGoing)
{
    Bus bus(L"");
    ASSERT_TRUE(bus.router.Open());
    ASSERT_TRUE(bus.router.Send(3, 1, "hello"));
    EXPECT_TRUE(bus.run.WaitUntilSaid("plugged in at slot 0, vendor 0x1E4F, product 0x0100\n"));
    EXPECT_TRUE(bus.run.WaitUntilSaid("router connected\n"));
    EXPECT_TRUE(bus.run.WaitUntilSaid("no   0 type   1 [03,01]     5 bytes 68 65 6c 6c 6f |hello|\n"));
    bus.router.Close();
    EXPECT_TRUE(bus.run.WaitUntilSaid("router gone\n"));
}

TEST(BusProgram, AReturningRouterFindsNewNumbersAndNoOldAnswers)
{
    Bus bus(L"");
    for (int round = 0; round < 10; ++round) {
        ASSERT_TRUE(bus.router.Open()) << round;
        ASSERT_TRUE(bus.router.Send(3, 1, "read"));
        const auto packet = bus.router.Next();
        ASSERT_TRUE(packet) << round;
        EXPECT_EQ(packet->payload, "read");
        EXPECT_EQ(packet->number, 1);
        ASSERT_TRUE(bus.router.Send(3, 1, "answered and not read"));
        bus.router.Close();
    }
    EXPECT_TRUE(support::WaitUntil([&] { return CountOf(bus.run.Output(), "router gone\n") == 10; }));
    EXPECT_EQ(bus.Stop(), 0);
    EXPECT_TRUE(bus.run.Said("10 connections"));
    EXPECT_TRUE(bus.run.Said("20 requests")) << "what was written before the close is taken";
}

TEST(BusProgram, ARouterThatOnlyLooksIsNoConnection)
{
    Bus bus(L"--do \"connected: send 3,1 41\"");
    ASSERT_TRUE(bus.router.Look());
    ASSERT_TRUE(bus.router.Look());
    ASSERT_TRUE(bus.router.Open());
    const auto packet = bus.router.Next();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->payload, "A");
    EXPECT_EQ(bus.Stop(), 0);
    EXPECT_TRUE(bus.run.Said("1 connections"));
}

TEST(BusProgram, TheLongestPayloadComesBackWhole)
{
    Bus bus(L"--quiet");
    ASSERT_TRUE(bus.router.Open());
    const std::string payload(65'535, '#');
    ASSERT_TRUE(bus.router.Send(3, 1, payload));
    const auto packet = bus.router.Next();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->payload, payload);
}

TEST(BusProgram, AnswersWaitForRoomUntilTheRouterReads)
{
    // Four times what the driver keeps unread.
    Bus bus(L"--quiet");
    ASSERT_TRUE(bus.router.Open());
    const std::string payload(60'000, 'x');
    for (int i = 0; i < 70; ++i) {
        ASSERT_TRUE(bus.router.Send(3, 1, payload));
    }
    for (int i = 0; i < 70; ++i) {
        const auto packet = bus.router.Next();
        ASSERT_TRUE(packet) << i;
        ASSERT_EQ(packet->number, i + 1);
        ASSERT_EQ(packet->payload.size(), payload.size());
    }
}

TEST(BusProgram, AWaitingAnswerHoldsUpNeitherTheStopNorTheNextConnection)
{
    Bus bus(L"--quiet --do \"flood 3,1 1000\"");
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(bus.router.Open());
        const auto packet = bus.router.Next();
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet->number, 1);
        bus.router.Close();
    }
    ASSERT_TRUE(bus.router.Open());
    ASSERT_TRUE(bus.router.Next());
    EXPECT_EQ(bus.Stop(), 0);
}

TEST(BusProgram, VanishesInMidPacketAndComesBack)
{
    Bus bus(L"--do \"request 2: vanish back 100\"");
    ASSERT_TRUE(bus.router.Open());
    ASSERT_TRUE(bus.router.Send(3, 1, "first"));
    ASSERT_TRUE(bus.router.Next());
    ASSERT_TRUE(bus.router.Send(3, 1, "second"));
    EXPECT_FALSE(bus.router.Next()) << "the device is unplugged before the packet is whole";
    EXPECT_EQ(bus.router.Unparsed(), 10u) << "half of the 20 bytes came";
    bus.router.Close();
    ASSERT_TRUE(bus.router.Open());
    ASSERT_TRUE(bus.router.Send(3, 1, "third"));
    const auto packet = bus.router.Next();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->payload, "third");
    EXPECT_EQ(packet->number, 1);
    EXPECT_TRUE(bus.run.Said("instrument vanished"));
    EXPECT_TRUE(bus.run.Said("instrument back"));
}

TEST(BusProgram, TheDeviceGoesWithTheProgramWhetherStoppedOrKilled)
{
    Bus bus(L"--quiet");
    ASSERT_TRUE(bus.router.Look());
    EXPECT_EQ(bus.Stop(), 0);
    EXPECT_TRUE(bus.router.WaitUntilGone());
    {
        const NamedEvent ready(L"Ready");
        const ToolRun killedAtItsEnd(L"InstrumentBus", L"--quiet --ready-event " + ready.Name());
        ASSERT_TRUE(ready.Wait());
    }
    EXPECT_TRUE(bus.router.WaitUntilGone());
    Bus next(L"--quiet");
    EXPECT_TRUE(next.router.Open()) << "the slot is free again";
}

TEST(BusProgram, ASecondOneInTheSameSlotEndsWithCode3)
{
    Bus bus(L"");
    ASSERT_TRUE(bus.plugged);
    const ToolRun second(L"InstrumentBus", L"--quiet");
    EXPECT_EQ(second.ExitCode(), 3);
    EXPECT_EQ(second.Output(), "InstrumentBus: slot 0 is played by another program already\n");
    ASSERT_TRUE(bus.router.Open()) << "the first one is not disturbed";
}

TEST(BusProgram, TwoSlotsAreTwoDevices)
{
    Bus first(L"");
    Bus second(L"--slot 5 --product 1024 --do \"reply \\\"second\\\"\"");
    ASSERT_TRUE(first.router.Open(0x0100));
    ASSERT_TRUE(second.router.Open(0x0400));
    ASSERT_TRUE(first.router.Send(3, 1, "x"));
    ASSERT_TRUE(second.router.Send(3, 1, "x"));
    EXPECT_EQ(first.router.Next().value().payload, "x");
    EXPECT_EQ(second.router.Next().value().payload, "second");
}

TEST(BusProgram, ProgramsThatStartTogetherInstallTheDriverOneAtATime)
{
    ASSERT_EQ(instrumentbus::UninstallDriver(), "");
    const NamedEvent stop(L"Stop");
    std::vector<std::unique_ptr<NamedEvent>> ready;
    std::vector<std::unique_ptr<ToolRun>> runs;
    for (int slot = 0; slot < 4; ++slot) {
        ready.push_back(std::make_unique<NamedEvent>(L"Ready"));
        runs.push_back(std::make_unique<ToolRun>(L"InstrumentBus", L"--quiet --stop-event " + stop.Name() +
                                                                       L" --slot " + std::to_wstring(slot) +
                                                                       L" --ready-event " + ready.back()->Name()));
    }
    for (std::size_t i = 0; i < runs.size(); ++i) {
        EXPECT_TRUE(ready[i]->Wait()) << runs[i]->Output();
    }
    UsbDevice device(nullptr, {0x4E7B2C19, 0x8D35, 0x4A60, {0xB1, 0xF2, 0x7C, 0x9E, 0x05, 0xD3, 0xA6, 0x48}},
                     false);
    EXPECT_TRUE(support::WaitUntil([&] { return device.DeviceCount() == runs.size(); }));
    stop.Set();
    for (const auto& run : runs) {
        EXPECT_EQ(run->ExitCode(), 0);
    }
}

TEST(BusProgram, WithoutTheDriverBesideItItEndsWithCode4AndOneLine)
{
    ASSERT_EQ(instrumentbus::UninstallDriver(), "");
    const support::TempFolder folder;
    std::filesystem::copy_file(support::ProgramFolder() / L"InstrumentBus.exe",
                               folder.Path() / L"InstrumentBus.exe");
    const support::ChildProcess run(folder.Path() / L"InstrumentBus.exe", L"--quiet");
    EXPECT_EQ(run.WaitForExit(), 4u);
    const std::string output = run.Output();
    EXPECT_NE(output.find("InstrumentBus: the device can't be played (copying "), std::string::npos) << output;
    EXPECT_EQ(LinesIn(output), 1u) << output;
}

TEST(BusProgram, WrongSwitchesEndItWithCode2AndOneLine)
{
    for (const wchar_t* const wrong :
         {L"--slot 8", L"--product 65536", L"--product 0x", L"--vendor x", L"--pipe x"})
    {
        const ToolRun run(L"InstrumentBus", wrong);
        EXPECT_EQ(run.ExitCode(), 2);
        EXPECT_EQ(LinesIn(run.Output()), 1u) << run.Output();
    }
}

TEST(BusProgram, TheHelpTellsTheWholeScriptLanguage)
{
    const ToolRun bus(L"InstrumentBus", L"--help");
    const ToolRun simulator(L"InstrumentSimulator", L"--help");
    EXPECT_EQ(bus.ExitCode(), 0);
    EXPECT_EQ(simulator.ExitCode(), 0);
    const std::string text = simulator.Output();
    const std::size_t language = text.find("Script lines");
    ASSERT_NE(language, std::string::npos);
    EXPECT_TRUE(bus.Said(text.substr(language)));
    EXPECT_TRUE(bus.Said("--product ID"));
}

} // namespace
