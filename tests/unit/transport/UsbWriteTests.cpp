// From the command queue to the instrument, when all goes well.
#include "tests/unit/transport/UsbFixture.h"

#include <algorithm>
#include <utility>

namespace usbtransport {

class UsbWrite : public UsbTransport
{};

TEST_F(UsbWrite, APacketIsFramedCountedAndItsPortHearsOfTheWrite)
{
    Connect();
    Send("12345");
    EXPECT_TRUE(NextIs("12345"));
    ASSERT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::USBCommandProcessThread overlapped write 19 bytes"));
    // 14 bytes for each packet written, idle packets too.
    EXPECT_TRUE(support::WaitUntil(
        [&] { return driver->GetTransferredBytes() == 14u * driver->m_outgoing.NextNumber() + 5u; }));
    const auto completions = host.Completions();
    EXPECT_EQ(std::ranges::count(completions, PortAddress{3, 1}), 1);
}

TEST_F(UsbWrite, AnAddressOf255IsToldAsMinus1)
{
    Connect();
    const std::uint8_t byte = 'x';
    driver->Send(255, 255, &byte, 1);
    const auto told = [&] {
        const auto completions = host.Completions();
        return std::ranges::count(completions, PortAddress{-1, -1}) == 1;
    };
    EXPECT_TRUE(support::WaitUntil(told));
}

TEST_F(UsbWrite, OutgoingPacketsAreDumpedInTheirOwnClassWhenThatIsWanted)
{
    Connect();
    RecordingTrace::WantDumps(true);
    Send("A");
    ASSERT_TRUE(RecordingTrace::WaitForLine("PCR->USB[15] text 23 23 "));
    for (const support::TraceLine& line : RecordingTrace::Lines()) {
        const bool dump = line.text.starts_with("PCR->USB") || line.text.starts_with("PCR<-USB");
        EXPECT_EQ(line.classMask, dump ? trace::ReadWrite : trace::Usb) << line.text;
    }
}

TEST_F(UsbWrite, ThreeHundredPacketsArriveInOrderWithNumbersThatWrap)
{
    Connect();
    for (int packet = 0; packet < 300; ++packet) {
        Send(std::to_string(packet));
        ASSERT_TRUE(NextIs(std::to_string(packet)));
    }
    EXPECT_GE(nextNumber, 300 - 256); // more only by idle packets
}

TEST_F(UsbWrite, ABacklogOfMoreThanFiveHundredPacketsIsWrittenWhole)
{
    host.quietSeconds.Reset();
    Connect();
    bus.SetRule(For(Out, Action::Hold, 1));
    Send("held");
    ASSERT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.held == 1; }));
    for (int packet = 0; packet < 600; ++packet) {
        Send(std::to_string(packet));
    }
    EXPECT_EQ(RecordingTrace::Count("Maximum queue size reached"), 0u) << "the limit is dormant";
    bus.Release(0);
    // The held one was released or, on a busy machine, aborted before. The 600 after it all arrive.
    const std::optional<std::string> first = NextFrame();
    ASSERT_TRUE(first);
    const bool wasReleased = *first == Frame(0, 1, 3, 1, "held");
    EXPECT_TRUE(wasReleased || *first == Frame(1, 1, 3, 1, "0"));
    nextNumber = wasReleased ? 1 : 2;
    for (int packet = wasReleased ? 0 : 1; packet < 600; ++packet) {
        ASSERT_TRUE(NextIs(std::to_string(packet)));
    }
}

TEST_F(UsbWrite, TheLongestPacketGoesOutInOnePiece)
{
    Connect();
    const std::string payload(65'535, 'p');
    Send(payload);
    EXPECT_TRUE(NextIs(payload));
    EXPECT_TRUE(RecordingTrace::WaitForLine("overlapped write 65549 bytes"));
}

TEST_F(UsbWrite, ThereIsNeverMoreThanOnePendingWrite)
{
    Connect();
    Rule slow = For(Out, Action::Delay);
    slow.milliseconds = 2;
    bus.SetRule(slow);
    for (int packet = 0; packet < 40; ++packet) {
        Send("x");
    }
    EXPECT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.begun >= 40 && c.pending == 0; }));
    EXPECT_EQ(bus.Count(0, Out).mostPending, 1u) << "counted by the instrument's driver at every start";
}

TEST_F(UsbWrite, AWriteThatTheInstrumentTakesOnlyAPartOfIsCountedByThatPart)
{
    Connect();
    Rule rule = For(Out, Action::Shorten);
    rule.length = 10;
    bus.SetRule(rule);
    Send("longer than ten");
    ASSERT_TRUE(RecordingTrace::WaitForLine("overlapped write 10 bytes"));
    EXPECT_TRUE(support::WaitUntil(
        [&] { return driver->GetTransferredBytes() == 10u * driver->m_outgoing.NextNumber(); }));
}

} // namespace usbtransport
