// ZIP files, read by unzip, and logs without payloads.
#include "tests/routerlog/portable/Logs.h"
#include "tools/RouterLog/log/Payloads.h"
#include "tools/RouterLog/pack/ZipWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>

using namespace routerlog;
using routerlogtest::LogText;
using routerlogtest::TextSource;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string OutputOf(const std::string& command)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    std::string output;
    char buffer[4096];
    while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, pipe.get())) {
        output.append(buffer, count);
    }
    return output;
}

class Zip : public testing::Test
{
protected:
    ~Zip() override { std::filesystem::remove(file); }
    void Write(ZipWriter& zip) const { std::ofstream(file, std::ios::binary) << zip.Finish(); }

    std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("routerlog-" + std::to_string(::getpid()) + ".zip");
};

TEST_F(Zip, GivesEveryFileBackByteForByte)
{
    std::minstd_rand random(1);
    std::string noise(100'000, '\0');
    for (char& each : noise) {
        each = static_cast<char>(random() >> 5);
    }
    std::string log;
    for (int i = 0; i < 5'000; ++i) {
        log += "[11-21-26 21:14:05:0042] CCyUSBDriver::ApppendToReplyProcessQueue() " +
               std::to_string(random() % 100) + " bytes\r\n";
    }
    const std::vector<std::pair<std::string, std::string>> files{
        {"empty.txt", ""},
        {"one.txt", "x"},
        {"run.txt", std::string(70'000, 'a')},
        {"logs/noise.bin", noise},
        {"logs/router.log", log},
        {"far.txt", noise.substr(0, 300) + std::string(32'768 - 300, 'b') + noise.substr(0, 300)}};
    ZipWriter zip;
    for (const auto& [name, bytes] : files) {
        zip.Add(name, bytes);
    }
    Write(zip);
    EXPECT_THAT(OutputOf("unzip -t " + file.string() + " 2>&1"), HasSubstr("No errors detected"));
    for (const auto& [name, bytes] : files) {
        EXPECT_TRUE(OutputOf("unzip -p " + file.string() + " " + name) == bytes) << name;
    }
}

TEST_F(Zip, MakesALogMuchSmaller)
{
    std::string log;
    for (int i = 0; i < 5'000; ++i) {
        log += "[11-21-26 21:14:05:0042] CCyUSBDriver::ReplyProcessThread()IDLE\r\n";
    }
    ZipWriter zip;
    zip.Add("router.log", log);
    EXPECT_LT(zip.Size(), log.size() / 20);
}

TEST(WithoutPayloads, KeepsTheLinesAndLeavesTheDumpsOut)
{
    const std::string log = LogText()
                                .At(0, "PCR->USB[17] # # S e c r e t ")
                                .At(1, "DEV<-PCR[03,01][006] S e c r e t ")
                                .At(2, "CCyUSBDriver::ReplyProcessThread()IDLE")
                                .Bare("c r e t ")
                                .Text();
    TextSource source(log);
    const std::string kept = WithoutPayloads(source, 1U << 20);
    EXPECT_THAT(kept, Not(HasSubstr("c r e t")));
    EXPECT_THAT(kept, HasSubstr("[03-07-26 14:00:00:0000] PCR->USB[17] (left out)\r\n"));
    EXPECT_THAT(kept, HasSubstr("[03-07-26 14:00:00:0001] DEV<-PCR[03,01][006] (left out)\r\n"));
    EXPECT_THAT(kept, HasSubstr("[03-07-26 14:00:00:0002] CCyUSBDriver::ReplyProcessThread()IDLE\r\n"));
    EXPECT_THAT(kept, HasSubstr("(a line of 8 characters left out)\r\n"));
}

TEST(WithoutPayloads, KeepsTheLastWholeLinesOfALongLog)
{
    LogText log;
    for (int i = 0; i < 10'000; ++i) {
        log.At(i, "CCyUSBDriver::USBCommandProcessThread overlapped write " + std::to_string(i) + " bytes");
    }
    TextSource source(log.Text());
    const std::string kept = WithoutPayloads(source, 1'000);
    EXPECT_LE(kept.size(), 1'000U);
    EXPECT_GT(kept.size(), 800U);
    EXPECT_EQ(kept.substr(0, 4), "[03-");
    EXPECT_THAT(kept, testing::EndsWith("overlapped write 9999 bytes\r\n"));
}

} // namespace
