#include "trace/PacketText.h"

#include <gtest/gtest.h>
#include <clocale>
#include <vector>

namespace {

std::string Dump(const std::vector<std::uint8_t>& bytes, std::uint32_t limit, bool hexOnly = false)
{
    std::string out;
    AppendPacketText(bytes.data(), static_cast<std::uint32_t>(bytes.size()), limit, hexOnly, out);
    return out;
}

TEST(PacketText, CharactersStandForThemselvesAndTheBlankIsTwoDots)
{
    EXPECT_EQ(Dump({0x41, 0x20, 0x42}, 4), "A .. B ");
}

TEST(PacketText, OtherBytesAreTwoUpperCaseHexDigits)
{
    EXPECT_EQ(Dump({0x00, 0x09, 0x0A, 0x1F, 0x7F}, 100), "00 09 0A 1F 7F ");
    EXPECT_EQ(Dump({0x21, 0x7E}, 100), "! ~ ");
}

TEST(PacketText, BytesFrom80UpAreHexInAnyLocale)
{
    const std::string before = std::setlocale(LC_CTYPE, nullptr);
    std::setlocale(LC_CTYPE, "");
    EXPECT_EQ(Dump({0x80, 0xA0, 0xE4, 0xFF}, 100), "80 A0 E4 FF ");
    std::setlocale(LC_CTYPE, before.c_str());
}

TEST(PacketText, HexOnlyLeavesNoCharacters)
{
    EXPECT_EQ(Dump({0x41, 0x20, 0xFF}, 100, true), "41 20 FF ");
}

TEST(PacketText, MoreBytesThanTheLimitAreCutAndMarked)
{
    EXPECT_EQ(Dump({0x41, 0x42, 0x43}, 2), "A B  ~more~");
}

TEST(PacketText, ExactlyTheLimitShowsAllBytesAndTheMark)
{
    EXPECT_EQ(Dump({0x41, 0x42, 0x43}, 3), "A B C  ~more~");
}

TEST(PacketText, ALimitOfZeroShowsTheMarkOnly)
{
    EXPECT_EQ(Dump({0x41}, 0), " ~more~");
}

TEST(PacketText, TheGreatestLimitShowsEverything)
{
    const std::vector<std::uint8_t> bytes(65535, 0x00);
    EXPECT_EQ(Dump(bytes, 0xFFFFFFFF).size(), 3U * 65535U);
}

TEST(PacketText, AppendsToWhatIsThere)
{
    std::string out = "x";
    const std::uint8_t byte = 0x41;
    AppendPacketText(&byte, 1, 2, false, out);
    EXPECT_EQ(out, "xA ");
}

} // namespace
