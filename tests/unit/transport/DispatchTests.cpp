#include "tests/support/Frames.h"
#include "tests/support/OwnFolder.h"
#include "tests/support/RecordingTrace.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/transport/FakeHost.h"
#include "tests/unit/transport/ReplyPath.h"
#include "transport/CCyUSBDriver.h"
#include "win32/ModulePath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace {

using support::Frame;
using support::RecordingTrace;

class Dispatch : public testing::Test
{
protected:
    Dispatch()
    {
        host.AddPort(3, 1);
        host.AddPort(3, 2);
        host.AddPort(4, 2);
    }
    void Feed(const std::string& bytes) { path.replies.Dispatch(BytesOf(bytes)); }
    static std::span<const std::uint8_t> BytesOf(const std::string& bytes)
    {
        return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
    }
    std::vector<std::string> Payloads() const
    {
        std::vector<std::string> payloads;
        for (const FakeHost::Delivery& delivery : host.Deliveries()) {
            payloads.push_back(delivery.payload);
        }
        return payloads;
    }
    static std::size_t Gaps() { return RecordingTrace::Count("Packet has packet number"); }

    FakeHost host;
    ReplyPath path{host};
    const bool cleared = (RecordingTrace::Clear(), true);
};

using Strings = std::vector<std::string>;

TEST_F(Dispatch, APacketSplitOverTwoReadsIsDeliveredOnceAfterTheSecond)
{
    const std::string frame = Frame(1, 1, 3, 1, "hello");
    Feed(frame.substr(0, 16));
    EXPECT_TRUE(host.Deliveries().empty());
    Feed(frame.substr(16));
    EXPECT_EQ(Payloads(), Strings{"hello"});
}

TEST_F(Dispatch, EveryCutAfterTheSyncPairDeliversThePacketOnce)
{
    const std::string frame = Frame(0, 1, 3, 1, "hello");
    for (std::size_t cut = 2; cut < frame.size(); ++cut) {
        Feed(frame.substr(0, cut));
        Feed(frame.substr(cut));
    }
    EXPECT_EQ(Payloads(), Strings(frame.size() - 2, "hello"));
}

TEST_F(Dispatch, ALoneMarkLeftAtTheEndOfABlockGoesAndItsPacketWithIt)
{
    Feed(Frame(0, 1, 3, 1, "one") + "#");
    Feed("#" + Frame(0, 1, 3, 1, "two").substr(2) + Frame(0, 1, 3, 1, "three"));
    EXPECT_EQ(Payloads(), (Strings{"one", "three"}));
}

TEST_F(Dispatch, TwoPacketsInOneReadAreDeliveredInOrderInOneCall)
{
    Feed(Frame(1, 1, 3, 1, "one") + Frame(2, 1, 3, 2, "two"));
    EXPECT_EQ(Payloads(), (Strings{"one", "two"}));
    EXPECT_EQ(host.Deliveries()[1].port, 2);
}

TEST_F(Dispatch, BytesBeforeTheFirstSyncPairAreDroppedSilently)
{
    Feed("garbage # and more" + Frame(1, 1, 3, 1, "one"));
    EXPECT_EQ(Payloads(), Strings{"one"});
    EXPECT_EQ(path.replies.Buffered(), 0u);
    EXPECT_EQ(RecordingTrace::Count("DispatchToDevice()"), 0u); // the driver's threads have traces of their own
}

TEST_F(Dispatch, ABlockWithoutASyncPairEmptiesTheReplyBuffer)
{
    Feed("no pair in here, only # and #");
    EXPECT_EQ(path.replies.Buffered(), 0u);
}

TEST_F(Dispatch, FewerThan15BytesAreNotLookedAtNotEvenAWholePacket)
{
    Feed(Frame(7, 2, 3, 1, ""));
    EXPECT_EQ(path.replies.Buffered(), 14u);
    Feed("x");
    EXPECT_EQ(path.replies.Buffered(), 0u); // the packet was consumed, the byte after it is no packet
}

TEST_F(Dispatch, Numbers1And2And4GiveOneGapLineWith3Expected)
{
    Feed(Frame(1, 1, 3, 1, "a") + Frame(2, 1, 3, 1, "b") + Frame(4, 1, 3, 1, "c"));
    EXPECT_EQ(Gaps(), 1u);
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::DispatchToDevice() Packet has packet number 4, expect 3"), 1u);
    EXPECT_EQ(Payloads(), (Strings{"a", "b", "c"}));
}

TEST_F(Dispatch, TheStepFrom255To0IsReportedTheOneAfter0IsNotChecked)
{
    Feed(Frame(255, 1, 3, 1, "a") + Frame(0, 1, 3, 1, "b") + Frame(77, 1, 3, 1, "c"));
    EXPECT_EQ(Gaps(), 1u);
    EXPECT_EQ(RecordingTrace::Count("Packet has packet number 0, expect 256"), 1u);
}

TEST_F(Dispatch, NumbersAreCheckedForPacketsOfAnyType)
{
    Feed(Frame(1, 1, 3, 1, "a") + Frame(9, 42, 3, 1, "b"));
    EXPECT_EQ(Gaps(), 1u);
    EXPECT_EQ(Payloads(), Strings{"a"});
}

TEST_F(Dispatch, EveryGapIsLoggedOnceTheLogFolderExists)
{
    if (support::DoneInOwnFolder()) {
        return;
    }
    const std::filesystem::path folder = win32::FolderOf(*win32::ModulePath()) + L"Log";
    Feed(Frame(1, 1, 3, 1, "a") + Frame(3, 1, 3, 1, "b"));
    EXPECT_FALSE(std::filesystem::exists(folder));

    std::filesystem::create_directory(folder);
    Feed(Frame(4, 1, 3, 1, "no gap") + Frame(255, 1, 3, 1, "a gap") + Frame(0, 1, 3, 1, "the end of the numbers"));
    Feed(Frame(1, 1, 3, 1, "unchecked") + Frame(2, 1, 3, 1, "no gap") + Frame(4, 1, 3, 1, "a gap"));
    std::ifstream in(folder / L"USBPortRouterSkippedPacket.log");
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 3u);
    const std::string texts[] = {"]  Previous Packet#   4  Current Packet# 255  ",
                                 "]  Previous Packet#   255  Current Packet# 0  ",
                                 "]  Previous Packet#   2  Current Packet# 4  "};
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i][0], '[');
        EXPECT_TRUE(lines[i].ends_with(texts[i])) << lines[i];
        std::string stamp = lines[i].substr(1, lines[i].size() - 1 - texts[i].size());
        std::ranges::replace_if(stamp, [](char c) { return c >= '0' && c <= '9'; }, '9');
        EXPECT_EQ(stamp, "99/99/99 99:99:99") << "date and time";
    }
}

TEST_F(Dispatch, ABroadcastToPort2ReachesEveryPortNumbered2)
{
    Feed(Frame(1, 1, 255, 2, "all"));
    ASSERT_EQ(host.Deliveries().size(), 2u);
    EXPECT_EQ(host.Deliveries()[0].deviceType, 3);
    EXPECT_EQ(host.Deliveries()[1].deviceType, 4);
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::DispatchToDevice() Broadcast to all EV ports"), 1u);
}

TEST_F(Dispatch, ABroadcastToAnotherPortLooksThatPortUpAndNormallyFindsNone)
{
    Feed(Frame(1, 1, 255, 1, "any"));
    EXPECT_TRUE(host.Deliveries().empty());
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::DispatchToDevice() Packet has no valid destination at (-1,1)"),
              1u);
    host.AddPort(-1, 1);
    Feed(Frame(2, 1, 255, 1, "any"));
    EXPECT_EQ(Payloads(), Strings{"any"});
}

TEST_F(Dispatch, AnUnknownAddressIsTracedWith255PrintedAsMinus1)
{
    Feed(Frame(1, 1, 9, 255, "x"));
    EXPECT_EQ(RecordingTrace::Count("Packet has no valid destination at (9,-1)"), 1u);
}

TEST_F(Dispatch, EmptyPayloadsAreConsumedWithoutDelivery)
{
    Feed(Frame(1, 1, 3, 1, "") + Frame(2, 1, 255, 2, "") + Frame(3, 1, 3, 1, "x"));
    EXPECT_EQ(Payloads(), Strings{"x"});
    EXPECT_EQ(RecordingTrace::Count("Broadcast"), 0u);
    EXPECT_EQ(Gaps(), 0u);
}

TEST_F(Dispatch, ThePayloadOfAddressZeroGoesToTheDownloaderAlsoWhenEmpty)
{
    Feed(Frame(1, 1, 0, 0, "") + Frame(2, 1, 0, 0, "text"));
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::DispatchToDevice() Reply for Firmware Download"), 2u);
    EXPECT_TRUE(host.Deliveries().empty());
}

TEST_F(Dispatch, TheChecksumIsNotVerified)
{
    std::string frame = Frame(1, 1, 3, 1, "abc");
    frame[frame.size() - 2] = static_cast<char>(frame[frame.size() - 2] ^ 0x55);
    Feed(frame);
    EXPECT_EQ(Payloads(), Strings{"abc"});
}

TEST_F(Dispatch, ALyingLengthHoldsPacketsBackUntilItIsFilled)
{
    std::string liar = Frame(1, 1, 3, 1, "abc");
    liar[11] = 100;
    Feed(liar + Frame(2, 1, 3, 1, "swallowed"));
    EXPECT_TRUE(host.Deliveries().empty());
    Feed(std::string(200, 'x') + Frame(3, 1, 3, 1, "later"));
    ASSERT_EQ(host.Deliveries().size(), 2u);
    EXPECT_EQ(Payloads()[0].size(), 100u);
    EXPECT_EQ(Payloads()[1], "later");
}

TEST_F(Dispatch, TheReplyBufferIsKeptWhileTheConnectionIsLost)
{
    const std::string frame = Frame(1, 1, 3, 1, "hello");
    CCyUSBDriver driver(true, host); // there is no simulator, so nothing but this test feeds it
    const auto feed = [&driver](const std::string& part) {
        driver.DispatchToDevice(BytesOf(part).data(), static_cast<std::uint32_t>(part.size()));
    };
    feed(frame.substr(0, 16));
    driver.Reconnect();
    ASSERT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::NotifyState(Not Connected)"));
    feed(frame.substr(16));
    EXPECT_EQ(Payloads(), Strings{"hello"});
}

TEST_F(Dispatch, AFullPayloadOf65535BytesIsDelivered)
{
    const std::string payload(65'535, 'p');
    const std::string frame = Frame(1, 1, 3, 1, payload);
    Feed(frame.substr(0, 65'535));
    Feed(frame.substr(65'535));
    ASSERT_EQ(host.Deliveries().size(), 1u);
    EXPECT_EQ(host.Deliveries()[0].payload, payload);
}

TEST_F(Dispatch, ABlockThatComesAsTheQuietSecondEndsIsHandledThenAndTraced)
{
    path.replies.ApppendToReplyProcessQueue(BytesOf(Frame(0, 1, 3, 1, "just now")));
    path.replies.OnQuietSecond();
    EXPECT_EQ(Payloads(), Strings{"just now"});
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::ReplyProcessThread()FORWARD, Number of pending replies: 1"),
              1u);
}

TEST_F(Dispatch, AStopDoesNotWaitForTheQuietSecondToEnd)
{
    constexpr int Drivers = 10;
    const ULONGLONG begin = ::GetTickCount64();
    for (int i = 0; i < Drivers; ++i) {
        const CCyUSBDriver another(true, host);
    }
    EXPECT_LT(::GetTickCount64() - begin, Drivers * 1'000u / 2);
}

TEST_F(Dispatch, NoDataOrNoLengthIsIgnored)
{
    CCyUSBDriver driver(true, host);
    driver.DispatchToDevice(nullptr, 20);
    driver.DispatchToDevice(reinterpret_cast<const std::uint8_t*>("x"), 0);
    const std::string frame = Frame(1, 1, 3, 1, "x");
    driver.DispatchToDevice(BytesOf(frame).data(), static_cast<std::uint32_t>(frame.size()));
    EXPECT_EQ(Payloads(), Strings{"x"});
    path.replies.Dispatch({});
    EXPECT_EQ(path.replies.Buffered(), 0u);
}

TEST_F(Dispatch, AfterAnyBytesInAnyCutAGoodPacketIsFound)
{
    std::mt19937 random(5);
    for (int round = 0; round < 300; ++round) {
        std::string bytes(random() % 2000, '\0');
        for (char& byte : bytes) {
            byte = random() % 3 == 0 ? '#' : static_cast<char>(random());
        }
        Feed(bytes);
    }
    // A payload length that lied is filled at last, then numbering and delivery go on.
    Feed(std::string(140'000, 'x'));
    const std::size_t before = host.Deliveries().size();
    Feed(Frame(1, 1, 3, 1, "found"));
    ASSERT_EQ(host.Deliveries().size(), before + 1);
    EXPECT_EQ(Payloads().back(), "found");
}

} // namespace
