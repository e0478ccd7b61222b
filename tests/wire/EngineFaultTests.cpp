// What the simulated instrument does wrong on purpose.
#include "tests/wire/EngineRouter.h"

using namespace enginetest;

namespace {

TEST(EngineFault, NumbersStartAtOneAndWrapFrom255To0)
{
    Router router("");
    for (int i = 0; i < 257; ++i) {
        router.Write({3, 1}, "x");
    }
    const auto numbers = router.Numbers();
    ASSERT_EQ(numbers.size(), 257u);
    EXPECT_EQ(numbers[0], 1);
    EXPECT_EQ(numbers[254], 255);
    EXPECT_EQ(numbers[255], 0);
    EXPECT_EQ(numbers[256], 1);
}

TEST(EngineFault, NumbersMayAllBeZero)
{
    Router router("numbers zero");
    for (int i = 0; i < 3; ++i) {
        router.Write({3, 1}, "x");
    }
    EXPECT_EQ(router.Numbers(), (Ints{0, 0, 0}));
}

TEST(EngineFault, NumbersMayStartElsewhere)
{
    Router router("numbers from 254");
    for (int i = 0; i < 3; ++i) {
        router.Write({3, 1}, "x");
    }
    EXPECT_EQ(router.Numbers(), (Ints{254, 255, 0}));
}

TEST(EngineFault, AGapLeavesOutNumbersOnce)
{
    Router router("request 2: gap\nrequest 3: gap 10");
    for (int i = 0; i < 4; ++i) {
        router.Write({3, 1}, "x");
    }
    EXPECT_EQ(router.Numbers(), (Ints{1, 3, 14, 15}));
}

TEST(EngineFault, AnExplicitNumberIsCountedOnFrom)
{
    Router router("request 2: number 200");
    for (int i = 0; i < 3; ++i) {
        router.Write({3, 1}, "x");
    }
    EXPECT_EQ(router.Numbers(), (Ints{1, 200, 201}));
}

TEST(EngineFault, AWrongChecksumIsWrongAndThePayloadRight)
{
    Router router("every 2: checksum");
    router.Write({3, 1}, "ab");
    router.Write({3, 1}, "ab");
    const auto packets = router.Packets();
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_TRUE(packets[0].checksumRight);
    EXPECT_FALSE(packets[1].checksumRight);
    EXPECT_EQ(packets[1].Said(), "ab");
}

TEST(EngineFault, ACorruptPayloadHasAChecksumThatFits)
{
    Router router("corrupt");
    router.Write({3, 1}, "ab");
    router.Write({3, 1}, "");
    const auto packets = router.Packets();
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_NE(packets[0].Said(), "ab");
    EXPECT_TRUE(packets[0].checksumRight);
    EXPECT_TRUE(packets[1].payload.empty());
}

TEST(EngineFault, ADuplicateIsAPacketOfItsOwn)
{
    Router router("duplicate 3");
    router.Write({3, 1}, "x");
    EXPECT_EQ(router.Numbers(), (Ints{1, 2, 3}));
    EXPECT_EQ(router.engine.Counted().answers, 3u);
}

TEST(EngineFault, GarbageNeverHidesThePacketBehindIt)
{
    Router router("garbage 600");
    for (int i = 0; i < 200; ++i) {
        router.Write({3, 1}, "x");
    }
    const auto texts = router.Texts();
    ASSERT_EQ(texts.size(), 200u);
    EXPECT_EQ(texts, Strings(200, "x"));
    EXPECT_EQ(router.engine.Counted().bytesSent, 200u * (600 + 15));
}

TEST(EngineFault, RawBytesStandInFrontOfTheAnswer)
{
    Router router("raw 23 23 00 01; silence");
    router.Write({3, 1}, "x");
    const auto writes = router.Writes();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0], (Bytes{0x23, 0x23, 0, 1}));
}

TEST(EngineFault, ASplitAnswerLeavesInPiecesOfItsSize)
{
    Router router("split 5");
    router.Write({3, 1}, "abcd");
    const auto writes = router.Writes();
    ASSERT_EQ(writes.size(), 4u);
    EXPECT_EQ(writes[0].size(), 5u);
    EXPECT_EQ(writes[3].size(), 3u);
}

TEST(EngineFault, PiecesOfASplitAnswerKeepTheirDistanceAndHoldTheNextBack)
{
    Router router("request 1: split 10 20");
    router.Write({3, 1}, "abcd");
    router.Write({3, 1}, "next");
    EXPECT_EQ(router.Writes().size(), 1u);
    EXPECT_EQ(router.engine.NextDue(), Ms(20));
    router.now = Ms(30);
    const auto late = router.Writes();
    ASSERT_EQ(late.size(), 2u) << "the rest of the first answer, then the second";
    EXPECT_EQ(late[0].size(), 8u);
    EXPECT_EQ(late[1].size(), 18u);
}

TEST(EngineFault, MergedAnswersWaitForEachOther)
{
    Router router("merge 3 50");
    router.Write({3, 1}, "a");
    router.Write({3, 1}, "b");
    EXPECT_TRUE(router.Writes().empty());
    router.Write({3, 1}, "c");
    router.Write({3, 1}, "d");
    const auto writes = router.Writes();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].size(), 3 * 15u);
    EXPECT_EQ(router.engine.NextDue(), Ms(50));
}

TEST(EngineFault, AMergeThatNeverFillsGoesOutAfterItsTime)
{
    Router router("merge 3 50");
    router.Write({3, 1}, "a");
    router.now = Ms(49);
    EXPECT_TRUE(router.Writes().empty());
    router.now = Ms(50);
    EXPECT_EQ(router.Texts(), Strings{"a"});
}

TEST(EngineFault, VanishingInMidPacketSendsHalfOfItAndComesBack)
{
    Router router("request 2: vanish back 100");
    router.Write({3, 1}, "abcd");
    router.Write({3, 1}, "abcd");
    router.Write({3, 1}, "abcd");
    const auto packets = router.Packets();
    EXPECT_EQ(packets.size(), 1u);
    EXPECT_EQ(router.Unparsed(), 9u) << "half of the second answer";
    EXPECT_EQ(router.last, Order::Vanish);
    EXPECT_TRUE(router.engine.IsAway());
    router.Write({3, 1}, "nobody there");
    router.now = Ms(99);
    EXPECT_TRUE(router.Packets().empty());
    EXPECT_EQ(router.last, Order::Nothing);
    EXPECT_EQ(router.engine.NextDue(), Ms(100));
    router.now = Ms(100);
    EXPECT_TRUE(router.Packets().empty());
    EXPECT_EQ(router.last, Order::Return);
    router.Connect();
    router.Write({3, 1}, "again");
    EXPECT_EQ(router.Texts(), Strings{"again"});
    EXPECT_EQ(router.engine.Counted().vanished, 1u);
    EXPECT_EQ(router.engine.Counted().requests, 4u);
}

TEST(EngineFault, VanishingWithoutComingBackIsForGood)
{
    Router router("request 1: vanish after 3");
    router.Write({3, 1}, "abcd");
    const auto writes = router.Writes();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].size(), 3u);
    EXPECT_EQ(router.last, Order::Vanish);
    EXPECT_FALSE(router.engine.NextDue());
    router.now = Ms(1'000'000);
    EXPECT_TRUE(router.Writes().empty());
    EXPECT_EQ(router.last, Order::Nothing);
}

TEST(EngineFault, VanishingMayComeByTheClock)
{
    Router router("after 10: vanish back 5");
    router.now = Ms(10);
    EXPECT_TRUE(router.Writes().empty());
    EXPECT_EQ(router.last, Order::Vanish);
    router.now = Ms(15);
    EXPECT_TRUE(router.Writes().empty());
    EXPECT_EQ(router.last, Order::Return);
}

TEST(EngineFault, ChanceIsRepeatableAndNeverAtZeroAlwaysAtHundred)
{
    const auto silent = [](std::string_view script) {
        Router router(script);
        for (int i = 0; i < 1000; ++i) {
            router.Write({3, 1}, "x");
        }
        return 1000 - router.engine.Counted().answers;
    };
    EXPECT_EQ(silent("chance 0: silence"), 0u);
    EXPECT_EQ(silent("chance 100: silence"), 1000u);
    const auto some = silent("chance 20: silence");
    EXPECT_GT(some, 100u);
    EXPECT_LT(some, 300u);
    EXPECT_EQ(silent("chance 20: silence"), some);
}

TEST(EngineFault, RulesApplyFromFirstToLast)
{
    Router router("silence\nrequests 2 to 3: echo\nrequests 5 on: reply \"end\"");
    for (int i = 0; i < 6; ++i) {
        router.Write({3, 1}, std::string(1, static_cast<char>('1' + i)));
    }
    EXPECT_EQ(router.Texts(), (Strings{"2", "3", "end", "end"}));
}

} // namespace
