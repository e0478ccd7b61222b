// Command lines and measurement payloads of the tools.
#include "console/CommandLine.h"
#include "console/SequencedPayload.h"

#include <gtest/gtest.h>

#include <numeric>

namespace {

struct CommandLine : testing::Test
{
    std::string text;
    bool flag = false;
    std::int64_t number = -1;
    std::int64_t time = -1;
    std::vector<std::string> words;

    std::string ErrorOf(const std::vector<std::string>& arguments, bool takesWords = true)
    {
        using namespace commandline;
        const std::vector<Switch> switches = {{"--text", true, Store(text)},
                                              {"--flag", false, Set(flag)},
                                              {"--number", true, StoreNumber(number, 1, 100)},
                                              {"--time", true, StoreSeconds(time)}};
        return Parse(arguments, switches, takesWords ? &words : nullptr).value_or("");
    }
};

TEST_F(CommandLine, SwitchesAndWordsMayStandInAnyOrder)
{
    EXPECT_EQ(ErrorOf({"listen", "--text", "a b", "--flag", "--number=7", "here", "--time", "2.5"}), "");
    EXPECT_EQ(text, "a b");
    EXPECT_TRUE(flag);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(time, 2500);
    EXPECT_EQ(words, (std::vector<std::string>{"listen", "here"}));
}

TEST_F(CommandLine, AValueMayBeginWithADashOrBeEmpty)
{
    EXPECT_EQ(ErrorOf({"--text", "--flag"}), "");
    EXPECT_EQ(text, "--flag");
    EXPECT_FALSE(flag);
    EXPECT_EQ(ErrorOf({"--text="}), "");
    EXPECT_EQ(text, "");
}

TEST_F(CommandLine, BehindALoneDoubleDashEverythingIsAWord)
{
    EXPECT_EQ(ErrorOf({"--", "--flag", "-"}), "");
    EXPECT_FALSE(flag);
    EXPECT_EQ(words, (std::vector<std::string>{"--flag", "-"}));
}

TEST_F(CommandLine, WhatIsWrongIsSaid)
{
    EXPECT_EQ(ErrorOf({"--colour"}), "unknown switch '--colour'");
    EXPECT_EQ(ErrorOf({"-x"}), "unknown switch '-x'");
    EXPECT_EQ(ErrorOf({"--text"}), "'--text' needs a value");
    EXPECT_EQ(ErrorOf({"--flag=1"}), "'--flag' takes no value");
    EXPECT_EQ(ErrorOf({"--number", "0"}), "'--number': '0' is not a whole number from 1 to 100");
    EXPECT_EQ(ErrorOf({"--number", "7x"}), "'--number': '7x' is not a whole number from 1 to 100");
    EXPECT_EQ(ErrorOf({"--time", "inf"}), "'--time': 'inf' is not a number of seconds");
    EXPECT_EQ(ErrorOf({"--time", "-1"}), "'--time': '-1' is not a number of seconds");
    EXPECT_EQ(ErrorOf({"word"}, false), "unexpected argument 'word'");
}

TEST(SequencedPayload, TheNumberComesBack)
{
    for (const std::size_t size : {8u, 9u, 64u, 1000u}) {
        for (const std::uint64_t number : {0ull, 1ull, 255ull, 256ull, 0xFFFFFFFFFFFFull}) {
            std::vector<std::uint8_t> payload(size);
            sequenced::Fill(payload, number, 0x0301);
            EXPECT_EQ(sequenced::NumberIn(payload, 0x0301), number);
        }
    }
}

TEST(SequencedPayload, AnyChangedByteIsFound)
{
    std::vector<std::uint8_t> payload(40);
    sequenced::Fill(payload, 77, 0x0301);
    for (std::size_t at = 0; at < payload.size(); ++at) {
        auto changed = payload;
        changed[at] ^= 0x40;
        EXPECT_NE(sequenced::NumberIn(changed, 0x0301), 77u) << at;
    }
}

TEST(SequencedPayload, AnotherPortsPayloadIsNotTaken)
{
    std::vector<std::uint8_t> payload(64);
    sequenced::Fill(payload, 77, 0x0301);
    EXPECT_FALSE(sequenced::NumberIn(payload, 0x0302));
}

TEST(SequencedPayload, TooShortAPayloadHoldsNoNumber)
{
    std::vector<std::uint8_t> payload(7);
    sequenced::Fill(payload, 3, 0);
    EXPECT_EQ(payload[0], 3);
    EXPECT_FALSE(sequenced::NumberIn(payload, 0));
}

} // namespace
