#include "tests/support/AllocationCount.h"
#include "tests/support/PatchedImport.h"
#include "tests/support/RecordingTrace.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/transport/FakeHost.h"
#include "tests/unit/transport/Hooks.h"
#include "transport/CCyUSBDriver.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using support::RecordingTrace;

// The connection counts as open until a test closes it.
class Submit : public testing::Test
{
protected:
    Submit() { RecordingTrace::Clear(); }
    std::unique_ptr<CSerialPortCommand> Next() { return outgoing.Queue().Pop(); }
    std::int32_t Queued() { return outgoing.Queue().GetCount(); }
    void Send(std::uint8_t x, std::uint8_t y, const std::string& payload)
    {
        outgoing.Send(x, y, reinterpret_cast<const std::uint8_t*>(payload.data()),
                      static_cast<std::uint32_t>(payload.size()));
    }

    FakeHost host;
    Connection connection{host};
    Outgoing outgoing{connection};
};

TEST_F(Submit, WhileDisconnectedASendIsDroppedWithTheTraceAndQueuesNothing)
{
    connection.m_hDisconnected.Set();
    Send(3, 1, "lost");
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::Submit() No connection, ignore all incomcing  requests"), 1u);
    EXPECT_EQ(Queued(), 0);
}

TEST_F(Submit, After255PacketsTheNextNumberIs0)
{
    for (int number = 0; number < 257; ++number) {
        Send(3, 1, "x");
        const auto packet = Next();
        ASSERT_TRUE(packet);
        ASSERT_EQ(packet->GetByteAt(2), number % 256);
    }
}

/// A frame of header and checksum alone: its bytes 10 to 13.
using HeaderEnd = std::array<int, 4>;
HeaderEnd EndOf(const std::unique_ptr<CSerialPortCommand>& packet)
{
    if (!packet || packet->GetLength() != 14) {
        return {-1, -1, -1, -1};
    }
    return {packet->GetByteAt(10), packet->GetByteAt(11), packet->GetByteAt(12), packet->GetByteAt(13)};
}

TEST_F(Submit, ASendOfLength0MakesA14ByteFrameWithChecksum0)
{
    outgoing.Send(3, 1, nullptr, 0);
    EXPECT_EQ(EndOf(Next()), (HeaderEnd{0, 0, 0, 0}));
}

TEST_F(Submit, WithoutDataTheHeaderStatesTheLengthThatWasGiven)
{
    outgoing.Send(3, 1, nullptr, 0x0203);
    EXPECT_EQ(EndOf(Next()), (HeaderEnd{0x02, 0x03, 0, 0}));
}

TEST_F(Submit, FramesThePayloadWithTypeAddressLengthAndChecksum)
{
    Send(3, 2, "AB");
    const auto packet = Next();
    ASSERT_TRUE(packet);
    const std::array<std::uint8_t, 16> expected{'#', '#', 0, 1, 0, 1, 3, 2, 0, 0, 0, 2, 'A', 'B', 'A' ^ 'B', 0};
    ASSERT_EQ(packet->GetLength(), 16);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), packet->GetData()));
}

TEST_F(Submit, TheIdlePacketIsOfType238ToAddress238WithoutPayload)
{
    outgoing.SendIdlePacket();
    const auto packet = Next();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->GetLength(), 14);
    EXPECT_EQ(packet->GetByteAt(3), 238);
    EXPECT_EQ(packet->GetByteAt(6), 238);
    EXPECT_EQ(packet->GetByteAt(7), 238);
}

TEST_F(Submit, APacketHasTheAddressOfItsFrame)
{
    const auto addressAfter = [this](std::int32_t x, std::int32_t y) {
        // As a port does with its own address.
        Send(static_cast<std::uint8_t>(x & 0xFF), static_cast<std::uint8_t>(y & 0xFF), "x");
        return Next()->Address();
    };
    EXPECT_EQ(addressAfter(3, 1), (PortAddress{3, 1}));
    EXPECT_EQ(addressAfter(259, 1), (PortAddress{3, 1})) << "only the low byte is on the wire";
    EXPECT_EQ(addressAfter(255, 2), (PortAddress{-1, 2}));
    EXPECT_EQ(addressAfter(-1, 254), (PortAddress{-1, 254}));
}

TEST_F(Submit, TheQueueLimitIsDormant)
{
    for (int packet = 0; packet < 600; ++packet) {
        Send(3, 1, "x");
    }
    EXPECT_EQ(Queued(), 600);
    EXPECT_EQ(RecordingTrace::Count("Maximum queue size reached"), 0u);
}

TEST_F(Submit, SeveralPortsAtOnceGetNumbersInTheOrderOfTheQueue)
{
    std::array<win32::Thread, 3> threads;
    for (win32::Thread& thread : threads) {
        thread.Start([this] {
            for (int packet = 0; packet < 500; ++packet) {
                Send(3, 1, "x");
            }
        });
    }
    for (win32::Thread& thread : threads) {
        thread.Join();
    }
    int expected = 0;
    while (const auto packet = Next()) {
        ASSERT_EQ(packet->GetByteAt(2), expected++ % 256);
    }
    EXPECT_EQ(expected, 1500);
}

TEST_F(Submit, TheDownloaderNamesItsTraceChannelsAtConstruction)
{
    const CCyUSBDriver driver(true, host);
    const std::map<std::int32_t, std::wstring> expected{{0, L"_FirmwareDownload"}, {-1, L"_FirmwareDebug"}};
    EXPECT_EQ(host.Names(), expected);
}

TEST_F(Submit, PacketsThatAreLeftAreDestroyed)
{
    const auto leave = [this](int packets) {
        Outgoing other(connection);
        for (int packet = 0; packet < packets; ++packet) {
            other.Send(3, 1, reinterpret_cast<const std::uint8_t*>("left over"), 9);
        }
        EXPECT_EQ(other.Queue().GetCount(), packets);
        RecordingTrace::Clear();
    };
    leave(1); // what the first use of anything leaves behind
    const std::size_t before = LiveAllocations();
    leave(1'000);
    EXPECT_LT(LiveAllocations(), before + 100);
}

TEST_F(Submit, ThreadsThatCannotStartAreTraced)
{
    hooks::refusedThreads = 2;
    {
        const CCyUSBDriver other(true, host);
    }
    EXPECT_EQ(hooks::refusedThreads.exchange(0), 0);
    EXPECT_EQ(RecordingTrace::Count("the command thread cannot be started(8)"), 1u);
    EXPECT_EQ(RecordingTrace::Count("the reply thread cannot be started(8)"), 1u);
}

TEST_F(Submit, CommandThreadsWithoutEventsAreTraced)
{
    const support::PatchedImport patch("CreateEventW", reinterpret_cast<void*>(hooks::RefuseEvent));
    for (const bool simulation : {true, false}) {
        const CCyUSBDriver other(simulation, host);
    }
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::SimulationCommandProcessThread() cannot run"), 1u);
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::USBCommandProcessThread() cannot run"), 1u);
}

} // namespace
