// Any bytes in any cut against any script: the engine keeps its promises and its bounds.
#include "tests/wire/EngineRouter.h"

#include <random>

using namespace enginetest;

namespace {

using Random = std::minstd_rand;

Bytes RandomBytes(Random& random, std::size_t most)
{
    Bytes bytes(random() % (most + 1));
    for (std::uint8_t& each : bytes) {
        each = static_cast<std::uint8_t>(random() >> 5);
    }
    return bytes;
}

/// Bytes as a broken router might write them: packets, packets with lying lengths, sync pairs, noise.
Bytes RandomTraffic(Random& random)
{
    static const char* const firmware[] = {"PREPARE_DOWNLOAD 50\r", "DOWNLOAD data",
                                           "DOWNLOAD_DONE\r",       "DOWNLOAD ",
                                           "PREPARE_DOWNLOAD ",     "PREPARE_DOWNLOAD 4294967296\r"};
    Bytes traffic;
    for (int part = 0; part < 8; ++part) {
        Bytes bytes;
        switch (random() % 6) {
        case 0: bytes = RandomBytes(random, 60); break;
        case 1: bytes = Bytes(random() % 4, wire::SyncByte); break;
        case 2:
            bytes = PacketBytes(static_cast<std::uint8_t>(random()), {0, 0}, Text(firmware[random() % 6]));
            break;
        case 3:
            bytes = PacketBytes(static_cast<std::uint8_t>(random()), {3, 1}, RandomBytes(random, 40));
            bytes[10 + random() % 2] = static_cast<std::uint8_t>(random() % 64);
            break;
        default:
            bytes = PacketBytes(static_cast<std::uint8_t>(random()),
                                {static_cast<std::uint8_t>(random()), static_cast<std::uint8_t>(random() % 4)},
                                RandomBytes(random, 300), static_cast<std::uint8_t>(random() % 3));
        }
        traffic.insert(traffic.end(), bytes.begin(), bytes.end());
    }
    return traffic;
}

std::string RandomScript(Random& random)
{
    static const char* const lines[] = {"delay 3",
                                        "every 2: delay 1",
                                        "chance 30: silence",
                                        "broadcast",
                                        "chance 20: gap 3",
                                        "every 3: checksum",
                                        "garbage 9",
                                        "chance 20: raw 23 23 23",
                                        "split 7 2",
                                        "chance 50: split 1",
                                        "merge 4 10",
                                        "chance 5: vanish back 4",
                                        "duplicate 3",
                                        "each 7: send 3,1 0001",
                                        "chance 2: vanish after 99999 back 1",
                                        "write 10",
                                        "numbers zero",
                                        "firmware at 1 vanish back 3",
                                        "firmware accept",
                                        "firmware quiet",
                                        "flood 3,1 30 2000",
                                        "after 5: vanish back 2",
                                        "send 0,0 \"x\"",
                                        "number 255",
                                        "connected: garbage 50"};
    std::string script;
    for (int line = 0; line < 4; ++line) {
        script += std::string(lines[random() % std::size(lines)]) + "\n";
    }
    return script;
}

TEST(EngineFuzz, AnyTrafficAgainstAnyScriptKeepsTheEnginesPromises)
{
    Random random(2024);
    for (int round = 0; round < 300; ++round) {
        const std::string script = RandomScript(random);
        SCOPED_TRACE(script);
        Router router(script);
        for (int step = 0; step < 30; ++step) {
            Bytes traffic = RandomTraffic(random);
            std::size_t at = 0;
            while (at < traffic.size()) {
                const std::size_t part = std::min<std::size_t>(1 + random() % 200, traffic.size() - at);
                router.engine.Receive(std::span(traffic).subspan(at, part), router.now);
                at += part;
                router.now += Time(random() % 1500);
                router.Writes();
                if (router.last == Order::Vanish) {
                    EXPECT_TRUE(router.engine.IsAway());
                }
                if (router.last == Order::Return || random() % 300 == 0) {
                    router.Connect();
                }
            }
        }
        const auto& counted = router.engine.Counted();
        ASSERT_LE(counted.garbageReceived, counted.bytesReceived);
    }
}

TEST(EngineFuzz, WhatIsDueIsGivenAndNothingBeforeItIsDue)
{
    Random random(7);
    for (int round = 0; round < 200; ++round) {
        const std::string script = RandomScript(random);
        SCOPED_TRACE(script);
        Router router(script);
        router.engine.Receive(RandomTraffic(random), router.now);
        for (int step = 0; step < 200; ++step) {
            router.Writes();
            if (router.last == Order::Return) {
                router.Connect();
            }
            const auto due = router.engine.NextDue();
            if (!due || router.last == Order::Vanish || router.last == Order::Return) {
                continue;
            }
            ASSERT_GT(*due, router.now) << "due already, but not given";
            router.now = *due - Time(1);
            ASSERT_TRUE(router.Writes().empty()) << "given before it was due";
            router.now = *due;
        }
    }
}

TEST(EngineFuzz, TheCutOfTheInputDoesNotChangeTheOutput)
{
    Random random(99);
    for (int round = 0; round < 300; ++round) {
        const Bytes traffic = RandomTraffic(random);
        Router whole("garbage 3\nevery 2: duplicate");
        whole.engine.Receive(traffic, whole.now);
        Router cut("garbage 3\nevery 2: duplicate");
        for (std::size_t at = 0; at < traffic.size();) {
            const std::size_t part = std::min<std::size_t>(1 + random() % 9, traffic.size() - at);
            cut.engine.Receive(std::span(traffic).subspan(at, part), cut.now);
            at += part;
        }
        EXPECT_EQ(whole.Writes(), cut.Writes());
        EXPECT_EQ(whole.engine.Counted().garbageReceived, cut.engine.Counted().garbageReceived);
    }
}

} // namespace
