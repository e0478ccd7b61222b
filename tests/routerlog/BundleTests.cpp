// The built RouterLog's bundle. Its files are told by their names, lengths and checksums; that they unpack is
// tested where there is an unpacker.
#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <random>

using testing::HasSubstr;

namespace {

struct Packed
{
    std::uint32_t crc;
    std::uint32_t length; // unpacked
};

std::uint32_t Crc(std::string_view text)
{
    std::uint32_t crc = ~0U;
    for (const char each : text) {
        crc ^= static_cast<std::uint8_t>(each);
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320U : 0);
        }
    }
    return ~crc;
}

/// The table at the end of a ZIP file.
std::map<std::string, Packed> ContentsOf(const std::string& zip)
{
    const auto number = [&](std::size_t at, int bytes) {
        std::uint32_t value = 0;
        for (int i = bytes; i-- > 0;) {
            value = value << 8 | static_cast<std::uint8_t>(zip.at(at + static_cast<std::size_t>(i)));
        }
        return value;
    };
    std::map<std::string, Packed> contents;
    const std::size_t end = zip.rfind("PK\x05\x06");
    if (end == std::string::npos) {
        return contents;
    }
    std::size_t at = number(end + 16, 4);
    for (std::uint32_t left = number(end + 10, 2); left > 0; --left) {
        const std::uint32_t name = number(at + 28, 2);
        contents[zip.substr(at + 46, name)] = {number(at + 16, 4), number(at + 24, 4)};
        at += 46 + name + number(at + 30, 2) + number(at + 32, 2);
    }
    return contents;
}

class BundleProgram : public testing::Test
{
protected:
    std::map<std::string, Packed> Bundle(const std::wstring& switches = {})
    {
        const std::filesystem::path file = folder.Path() / L"bundle.zip";
        const support::ChildProcess program(support::ProgramFolder() / L"RouterLog.exe",
                                            L"bundle \"" + file.wstring() + L"\" \"" + log.wstring() + L"\"" +
                                                switches);
        EXPECT_EQ(program.WaitForExit(std::chrono::seconds(120)), 0U) << program.Output();
        output = program.Output();
        std::ifstream in(file, std::ios::binary);
        const std::string zip{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        size = zip.size();
        return ContentsOf(zip);
    }
    void Write(const std::string& text) const { std::ofstream(log, std::ios::binary) << text; }
    static void ExpectIs(const Packed& packed, const std::string& text)
    {
        EXPECT_EQ(packed.length, text.size());
        EXPECT_EQ(packed.crc, Crc(text));
    }

    support::TempFolder folder;
    std::filesystem::path log = folder.Path() / L"MorvanePortRouter.log";
    std::string output;
    std::size_t size = 0;
};

TEST_F(BundleProgram, HoldsTheLogAndWhatIsSaidOfItAndThePc)
{
    const std::string text = "[11-21-26 21:14:05:0042] PCR->USB[3] a b c \r\n";
    Write(text);
    const std::map<std::string, Packed> contents = Bundle();
    std::vector<std::string> names;
    for (const auto& [name, packed] : contents) {
        names.push_back(name);
        EXPECT_GT(packed.length, 0U) << name;
    }
    ASSERT_THAT(names, testing::UnorderedElementsAre("doctor.txt", "versions.txt", "settings.txt", "explain.txt",
                                                     "explain.json", "logs/1-MorvanePortRouter.log"));
    ExpectIs(contents.at("logs/1-MorvanePortRouter.log"), text);
}

TEST_F(BundleProgram, LeavesTheDumpsOutWhenAsked)
{
    Write("[11-21-26 21:14:05:0042] PCR->USB[3] a b c \r\n");
    const std::map<std::string, Packed> contents = Bundle(L" --no-payload");
    ASSERT_TRUE(contents.contains("logs/1-MorvanePortRouter.log"));
    ExpectIs(contents.at("logs/1-MorvanePortRouter.log"), "[11-21-26 21:14:05:0042] PCR->USB[3] (left out)\r\n");
}

TEST_F(BundleProgram, StaysBelow20MegabytesWithTheLogsEnd)
{
    constexpr std::size_t Large = 21U << 20; // of bytes that cannot be packed
    std::minstd_rand random(7);
    std::string noise(Large, '\0');
    for (char& each : noise) {
        each = static_cast<char>(random() >> 5);
    }
    Write(noise + "\nthe end");
    const std::map<std::string, Packed> contents = Bundle();
    EXPECT_LE(size, 20U << 20);
    ASSERT_TRUE(contents.contains("logs/1-MorvanePortRouter.log"));
    EXPECT_GT(contents.at("logs/1-MorvanePortRouter.log").length, 10U << 20);
    EXPECT_THAT(output, HasSubstr("of each its last 16 MB"));
}

} // namespace
