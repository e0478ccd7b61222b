// What the simulated instrument answers, to whom and when.
#include "tests/wire/EngineRouter.h"

using namespace enginetest;

namespace {

TEST(EngineAnswer, ARequestIsEchoedToItsSender)
{
    Router router("");
    router.Write({3, 1}, "hello");
    const auto packets = router.Packets();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0].Said(), "hello");
    EXPECT_EQ(packets[0].to, (Address{3, 1}));
    EXPECT_EQ(packets[0].type, wire::PortTraffic);
    EXPECT_TRUE(packets[0].checksumRight);
}

TEST(EngineAnswer, TheLongestPayloadComesBackWhole)
{
    Router router("");
    const Bytes payload(65535, 0x23);
    router.Write({3, 1}, payload);
    const auto packets = router.Packets();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0].payload, payload);
}

TEST(EngineAnswer, ARequestIsAnsweredOnceWhereverItIsCut)
{
    const Bytes packet = PacketBytes(0, {3, 1}, Text("abcdef"));
    for (std::size_t cut = 0; cut <= packet.size(); ++cut) {
        Router router("");
        router.engine.Receive(std::span(packet).first(cut), router.now);
        const std::size_t early = router.Packets().size();
        router.engine.Receive(std::span(packet).subspan(cut), router.now);
        EXPECT_EQ(early + router.Packets().size(), 1u) << "cut at " << cut;
    }
}

TEST(EngineAnswer, ASyncPairCutBehindGarbageIsStillFound)
{
    Router router("");
    Bytes bytes = Text("noise");
    const Bytes packet = PacketBytes(0, {3, 1}, Text("x"));
    bytes.insert(bytes.end(), packet.begin(), packet.end());
    router.engine.Receive(std::span(bytes).first(6), router.now);
    router.engine.Receive(std::span(bytes).subspan(6), router.now);
    EXPECT_EQ(router.Texts(), Strings{"x"});
    EXPECT_EQ(router.engine.Counted().garbageReceived, 5u);
}

TEST(EngineAnswer, AnswersThatAreDueTogetherLeaveInOneWrite)
{
    Router router("");
    for (int i = 0; i < 10; ++i) {
        router.Write({3, 1}, "hello");
    }
    EXPECT_EQ(router.Writes().size(), 1u);
}

TEST(EngineAnswer, AWriteIsNeverLongerThanTheScriptAllows)
{
    Router router("write 100");
    const Bytes payload(300, 7);
    router.Write({3, 1}, payload);
    router.Write({3, 1}, payload);
    const auto writes = router.Writes();
    std::size_t total = 0;
    for (const Bytes& each : writes) {
        EXPECT_LE(each.size(), 100u);
        total += each.size();
    }
    EXPECT_EQ(total, 2 * 314u);
}

TEST(EngineAnswer, ADelayedAnswerComesNotBeforeItsTime)
{
    Router router("delay 5");
    router.Write({3, 1}, "late");
    EXPECT_TRUE(router.Texts().empty());
    EXPECT_EQ(router.engine.NextDue(), Ms(5));
    router.now = Ms(5) - Time(1);
    EXPECT_TRUE(router.Texts().empty());
    router.now = Ms(5);
    EXPECT_EQ(router.Texts(), Strings{"late"});
    EXPECT_FALSE(router.engine.NextDue());
}

TEST(EngineAnswer, AnswersWithShorterDelaysOvertakeAndTheNumbersStayInOrder)
{
    Router router("from 3,1: delay 20\nfrom 4,1: delay 10");
    router.Write({3, 1}, "slow");
    router.Write({4, 1}, "fast");
    router.now = Ms(10);
    const auto first = router.Packets();
    router.now = Ms(20);
    const auto second = router.Packets();
    ASSERT_EQ(first.size(), 1u);
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(first[0].Said(), "fast");
    EXPECT_EQ(first[0].number, 1);
    EXPECT_EQ(second[0].number, 2);
}

TEST(EngineAnswer, SilenceGivesNothingButCounts)
{
    Router router("silence");
    router.Write({3, 1}, "anyone?");
    EXPECT_TRUE(router.Texts().empty());
    EXPECT_EQ(router.engine.Counted().requests, 1u);
    EXPECT_EQ(router.engine.Counted().answers, 0u);
}

TEST(EngineAnswer, ABroadcastFollowsTheAnswerAndCarriesTheRequest)
{
    Router router("request 2: broadcast");
    router.Write({3, 1}, "one");
    router.Write({3, 1}, "two");
    const auto packets = router.Packets();
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[2].to, (Address{255, 2}));
    EXPECT_EQ(packets[2].Said(), "two");
    EXPECT_EQ(packets[2].number, 3);
}

TEST(EngineAnswer, AnExtraPacketGoesWhereTheScriptSays)
{
    Router router("silence; send 7,9 01 \"ab\" ff");
    router.Write({3, 1}, "x");
    const auto packets = router.Packets();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0].to, (Address{7, 9}));
    EXPECT_EQ(packets[0].payload, (Bytes{1, 'a', 'b', 0xFF}));
}

TEST(EngineAnswer, AFixedReplyReplacesTheEcho)
{
    Router router("reply \"OK\\r\"");
    router.Write({3, 1}, "status?");
    EXPECT_EQ(router.Texts(), Strings{"OK\r"});
}

TEST(EngineAnswer, ControlPacketsAndOtherTypesAreCountedAndNotAnswered)
{
    Router router("");
    router.engine.Receive(PacketBytes(0, {238, 238}, {}, wire::ControlPacket), router.now);
    router.engine.Receive(PacketBytes(1, {3, 1}, Text("x"), 7), router.now);
    EXPECT_TRUE(router.Packets().empty());
    EXPECT_EQ(router.engine.Counted().controlPackets, 1u);
    EXPECT_EQ(router.engine.Counted().otherPackets, 1u);
    EXPECT_EQ(router.engine.Counted().requests, 0u);
}

TEST(EngineAnswer, GapsAndChecksumsOfTheRouterAreFound)
{
    Router router("");
    router.engine.Receive(PacketBytes(254, {3, 1}, Text("a")), router.now);
    router.engine.Receive(PacketBytes(255, {3, 1}, Text("b")), router.now);
    router.engine.Receive(PacketBytes(0, {3, 1}, Text("c")), router.now);
    EXPECT_EQ(router.engine.Counted().numberGaps, 0u) << "255 to 0 is no gap";
    Bytes wrong = PacketBytes(2, {3, 1}, Text("d"));
    wrong[wrong.size() - 2] ^= 1;
    router.engine.Receive(wrong, router.now);
    EXPECT_EQ(router.engine.Counted().numberGaps, 1u);
    EXPECT_EQ(router.engine.Counted().wrongChecksums, 1u);
}

TEST(EngineAnswer, ANewConnectionStartsAfresh)
{
    Router router("delay 5");
    router.Write({3, 1}, "lost");
    const Bytes half = PacketBytes(9, {3, 1}, Text("half"));
    router.engine.Receive(std::span(half).first(8), router.now);
    router.engine.Disconnected();
    router.Connect();
    router.now = Ms(5);
    EXPECT_TRUE(router.Packets().empty());
    router.Write({3, 1}, "new");
    router.now = Ms(10);
    const auto packets = router.Packets();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0].number, 1);
    EXPECT_EQ(router.engine.Counted().numberGaps, 0u);
}

TEST(EngineAnswer, NothingIsTakenOrAnsweredWhileNobodyIsConnected)
{
    Router router("each 1: broadcast 00");
    router.engine.Disconnected();
    router.now = Ms(100);
    router.Write({3, 1}, "x");
    EXPECT_TRUE(router.Packets().empty());
    EXPECT_FALSE(router.engine.NextDue());
}

TEST(EngineAnswer, TimedPacketsComeAtTheirTimes)
{
    Router router("connected: broadcast \"hi\"\nafter 10: send 3,1 \"once\"\neach 25: send 3,1 \"tick\"");
    EXPECT_EQ(router.Texts(), Strings{"hi"});
    EXPECT_EQ(router.engine.NextDue(), Ms(10));
    router.now = Ms(10);
    EXPECT_EQ(router.Texts(), Strings{"once"});
    router.now = Ms(80);
    EXPECT_EQ(router.Texts(), (Strings{"tick", "tick", "tick"}));
    EXPECT_EQ(router.engine.NextDue(), Ms(100));
    EXPECT_EQ(router.engine.Counted().unsolicited, 5u);
}

TEST(EngineAnswer, AFloodKeepsItsRateAndItsCount)
{
    Router router("flood 3,1 20 1000 50");
    EXPECT_EQ(router.Packets().size(), 1u) << "the first at once";
    router.now = Ms(9);
    EXPECT_EQ(router.Packets().size(), 9u);
    router.now = Ms(1000);
    EXPECT_EQ(router.Packets().size(), 40u);
    EXPECT_FALSE(router.engine.NextDue());
}

TEST(EngineAnswer, AFloodWithoutRateFillsEachWrite)
{
    Router router("flood 3,1 86 0\nwrite 1000");
    Bytes bytes;
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(router.engine.Take(router.now, bytes), Order::Write);
        EXPECT_EQ(bytes.size(), 1000u);
    }
}

TEST(EngineAnswer, AnswersGoBeforeTheFlood)
{
    Router router("flood 3,1 86 0");
    router.Write({4, 1}, "me first");
    Bytes bytes;
    ASSERT_EQ(router.engine.Take(router.now, bytes), Order::Write);
    EXPECT_EQ(bytes.size(), wire::FrameOverhead + 8);
}

} // namespace
