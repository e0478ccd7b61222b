// Captures of logs, read by tshark with the project's dissector.
#include "tests/routerlog/portable/Logs.h"
#include "tools/RouterLog/capture/PacketExport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

using namespace routerlog;
using routerlogtest::LogText;
using routerlogtest::TextSource;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

using Bytes = std::vector<std::uint8_t>;

/// A packet on the wire.
Bytes Frame(int number, int deviceType, int port, const std::string& payload, int type = 1)
{
    const auto byte = [](std::size_t value) { return static_cast<std::uint8_t>(value & 0xFF); };
    Bytes frame{'#',
                '#',
                byte(static_cast<std::size_t>(number)),
                byte(static_cast<std::size_t>(type)),
                0,
                1,
                byte(static_cast<std::size_t>(deviceType)),
                byte(static_cast<std::size_t>(port)),
                0,
                0,
                byte(payload.size() >> 8),
                byte(payload.size())};
    std::uint8_t sum = 0;
    for (const char each : payload) {
        frame.push_back(static_cast<std::uint8_t>(each));
        sum = static_cast<std::uint8_t>(sum ^ static_cast<std::uint8_t>(each));
    }
    frame.push_back(sum);
    frame.push_back(0);
    return frame;
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// As the router dumps bytes.
std::string Dump(const Bytes& bytes, std::size_t limit)
{
    std::string text;
    for (std::size_t i = 0; i < std::min(limit, bytes.size()); ++i) {
        char hex[8];
        std::snprintf(hex, sizeof hex, "%02X ", bytes[i]);
        text += bytes[i] == ' '                   ? ".. "
              : bytes[i] > ' ' && bytes[i] < 0x7F ? std::string(1, static_cast<char>(bytes[i])) + " "
                                                  : hex;
    }
    return bytes.size() >= limit ? text + " ~more~" : text;
}

std::string RawLine(const char* direction, const Bytes& bytes, std::size_t limit = 100'000)
{
    return (std::string(direction) + "[" + std::to_string(bytes.size()) + "] " + Dump(bytes, limit))
        .substr(0, LongestTracedText);
}

class Export : public testing::Test
{
protected:
    Export() : folder(std::filesystem::temp_directory_path() / ("routerlog-export-" + std::to_string(::getpid())))
    {
        std::filesystem::create_directories(folder);
        std::filesystem::copy_file(MORVANE_SOURCES "/tools/wireshark/morvane.lua", folder / "morvane.lua");
        std::filesystem::permissions(folder, std::filesystem::perms(0755));
        std::filesystem::permissions(folder / "morvane.lua", std::filesystem::perms(0644));
    }
    ~Export() override { std::filesystem::remove_all(folder); }

    void Sent(const Bytes& bytes, std::size_t limit = 100'000)
    {
        log.At(time++, RawLine("PCR->USB", bytes, limit));
    }
    void Received(const Bytes& bytes, std::size_t limit = 100'000)
    {
        log.At(time++, RawLine("PCR<-USB", bytes, limit));
    }

    /// Exports the log; what tshark prints with these switches, line by line.
    std::vector<std::string> Tshark(const std::string& switches)
    {
        const std::filesystem::path file = folder / "log.pcapng";
        std::ofstream out(file, std::ios::binary);
        PacketExport packets([&](std::string_view bytes) { out << bytes; });
        TextSource source(log.Text());
        packets.TakeFile(source);
        out.close();
        std::filesystem::permissions(file, std::filesystem::perms(0644));
        cut = packets.Cut();
        // A user's own preferences and plugins must not count. As root Wireshark runs no plugins.
        const std::string user = ::geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
        const std::string command = "HOME=" + folder.string() + " " + user +
                                    "tshark -X lua_script:" + (folder / "morvane.lua").string() + " -n -r " +
                                    file.string() + " " + switches + " 2>" + (folder / "errors").string();
        std::FILE* const output = ::popen(command.c_str(), "r");
        std::vector<std::string> lines;
        char line[70'000];
        while (std::fgets(line, sizeof line, output) != nullptr) {
            lines.emplace_back(line, std::strcspn(line, "\n"));
        }
        EXPECT_EQ(::pclose(output), 0) << std::ifstream(folder / "errors").rdbuf();
        return lines;
    }

    std::filesystem::path folder;
    LogText log;
    int time = 0;
    std::uint64_t cut = 0;
};

TEST_F(Export, OfTenThousandPacketsLeavesNoneMalformed)
{
    for (int i = 0; i < 5'000; ++i) {
        const std::string payload = "request " + std::to_string(i);
        Sent(Frame(i % 256, 3, 1 + i % 2, payload));
        Received(Frame((i + 1) % 256, 3, 1 + i % 2, payload));
    }
    const std::vector<std::string> lines =
        Tshark("-T fields -e _ws.malformed -e morvane.number -e morvane.gap -e "
               "morvane.checksum.bad -e morvane.outside -e _ws.lua.error -e frame.len");
    ASSERT_EQ(lines.size(), 10'000U);
    for (int i = 0; i < 10'000; ++i) {
        const std::string length = std::to_string(14 + 8 + std::to_string(i / 2).size());
        ASSERT_EQ(lines[static_cast<std::size_t>(i)],
                  "\t" + std::to_string((i / 2 + i % 2) % 256) + "\t\t\t\t\t" + length)
            << i;
    }
}

TEST_F(Export, FlagsAPlantedGapAndNoOther)
{
    Received(Frame(254, 3, 1, "a"));
    Received(Frame(255, 3, 1, "b"));
    Received(Frame(0, 3, 1, "c"));
    Received(Frame(3, 3, 1, "d"));
    EXPECT_THAT(Tshark("-T fields -e morvane.number -e morvane.gap -Y morvane.gap"), ElementsAre("3\t2"));
}

TEST_F(Export, TakesANewConnectionForNoGap)
{
    Received(Frame(9, 3, 1, "a"));
    log.At(time++, "Connection to USB opened, BULK IN on Pipe 2 and OUT on Pipe 1");
    Received(Frame(1, 3, 1, "b"));
    Sent(Frame(7, 3, 1, "c"));
    Sent(Frame(0, 3, 1, "d"));
    Received(Frame(1, 3, 1, "e"));
    EXPECT_THAT(Tshark("-Y morvane.gap"), ElementsAre());
}

TEST_F(Export, FlagsAPlantedWrongChecksumAndNoOther)
{
    Bytes wrong = Frame(2, 3, 1, "abc");
    wrong[wrong.size() - 2] ^= 1;
    Received(Frame(1, 3, 1, "abc"));
    Received(wrong);
    EXPECT_THAT(Tshark("-T fields -e morvane.number -Y morvane.checksum.bad"), ElementsAre("2"));
}

TEST_F(Export, LinksRepliesToTheRequestsOfTheirPort)
{
    Sent(Frame(0, 3, 1, "a"));
    Sent(Frame(1, 3, 2, "b"));
    Received(Frame(1, 3, 2, "B"));
    Received(Frame(2, 3, 1, "A"));
    EXPECT_THAT(Tshark("-2 -T fields -e frame.number -e morvane.request -e morvane.reply"),
                ElementsAre("1\t\t4", "2\t\t3", "3\t2\t", "4\t1\t"));
}

TEST_F(Export, KeepsTheBytesAsFarAsTracedAndTheLength)
{
    std::string payload(1'000, '\0');
    for (std::size_t i = 0; i < payload.size(); ++i) {
        payload[i] = static_cast<char>(i * 7);
    }
    const Bytes frame = Frame(1, 3, 1, payload);
    Received(frame, 100);
    Received(frame); // cut by the longest line
    const std::vector<std::string> lines =
        Tshark("-T fields -e frame.len -e frame.cap_len -e data -e _ws.malformed "
               "-e morvane.length -e morvane.payload");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(cut, 2U);
    std::string hex;
    for (std::size_t i = 12; i < 100; ++i) {
        char digits[8];
        std::snprintf(digits, sizeof digits, "%02x", frame[i]);
        hex += digits;
    }
    EXPECT_EQ(lines[0], "1014\t100\t\t\t1000\t" + hex);
    EXPECT_THAT(lines[1], testing::StartsWith("1014\t"));
    EXPECT_THAT(lines[1], HasSubstr(hex));
    EXPECT_GT(lines[1].size(), lines[0].size() + 1'000);
}

TEST_F(Export, FindsThePacketsOfABlockAndThoseOfTwoBlocks)
{
    const Bytes stream = Frame(1, 3, 1, "one") + Frame(2, 3, 2, "two") + Frame(3, 4, 1, "three");
    for (const std::size_t at : {std::size_t{20}, std::size_t{40}, stream.size()}) {
        const auto middle = stream.begin() + static_cast<std::ptrdiff_t>(at);
        log = {};
        Received(Bytes(stream.begin(), middle));
        if (middle != stream.end()) {
            Received(Bytes(middle, stream.end()));
        }
        Received(Frame(4, 3, 1, "four"));
        EXPECT_THAT(Tshark("-Y 'morvane.gap || morvane.outside || _ws.malformed'"), ElementsAre()) << at;
    }
    EXPECT_THAT(Tshark("-T fields -e morvane.number"), ElementsAre("1,2,3", "4"));
}

TEST_F(Export, ReadsTheFirmwareDialogue)
{
    Sent(Frame(0, 0, 0, "PREPARE_DOWNLOAD 50\r"));
    Received(Frame(1, 0, 0, "RECEIVE_READY 50 4000\r"));
    log.At(time++, "FirmwareDownloader::OnReceive RECEIVE_READY");
    Sent(Frame(1, 0, 0, "DOWNLOAD xyz"));
    EXPECT_THAT(Tshark("-T fields -e morvane.firmware -e morvane.event"),
                ElementsAre("PREPARE_DOWNLOAD 50\t", "RECEIVE_READY 50 4000\t",
                            "\tFirmwareDownloader::OnReceive RECEIVE_READY", "DOWNLOAD, chunk\t"));
}

TEST_F(Export, ShowsTheClientsPayloadsWithTheirPort)
{
    log.At(0, "DEV->PCR[03,01][003] a .. 00 ")
        .At(5, "DEV<-PCR[03,01][200] A B  ~more~")
        .At(6, "DEV<-PCR[-1,02][001] x ");
    EXPECT_THAT(
        Tshark("-2 -T fields -e morvane.client.devicetype -e morvane.client.port -e morvane.client.length -e "
               "morvane.payload -e morvane.request -e _ws.malformed"),
        ElementsAre("3\t1\t3\t612000\t\t", "3\t1\t200\t4142\t1\t", "-1\t2\t1\t78\t\t"));
}

} // namespace
