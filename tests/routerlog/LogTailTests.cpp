// The log as follow reads it, written and rotated by the product's own code.
#include "tests/support/TempFolder.h"
#include "tests/support/WaitUntil.h"
#include "tools/RouterLog/pc/LogTail.h"

#include "diag/LogFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

using routerlog::LogTail;
using routerlog::RawLine;
using testing::ElementsAre;

namespace {

class Tail : public testing::Test
{
protected:
    void Append(const std::string& text) const { std::ofstream(path, std::ios::binary | std::ios::app) << text; }

    support::TempFolder folder;
    std::filesystem::path path = folder.Path() / L"MorvanePortRouter.log";
    std::vector<std::string> lines;
    int files = 0;
    LogTail tail{path, [this] { ++files; }, [this](const RawLine& line) { lines.emplace_back(line.text); }};
};

TEST_F(Tail, GivesALineOnceItsEndIsWritten)
{
    tail.Look();
    EXPECT_EQ(files, 0);
    Append("one\r\ntw");
    tail.Look();
    EXPECT_THAT(lines, ElementsAre("one"));
    Append("o\r");
    tail.Look();
    Append("\nthree\r\n");
    tail.Look();
    tail.Look();
    EXPECT_THAT(lines, ElementsAre("one", "two", "three"));
    EXPECT_EQ(files, 1);
}

TEST_F(Tail, BeginsAnewWithALogThatDoes)
{
    Append("one\r\ntwo\r\n");
    tail.Look();
    std::ofstream(path, std::ios::binary | std::ios::trunc) << "new\r\n";
    tail.Look();
    EXPECT_THAT(lines, ElementsAre("one", "two", "new"));
    EXPECT_EQ(files, 2);
}

TEST_F(Tail, LosesNoLineOverTenRotations)
{
    LogFile log;
    log.Open(path, true);
    tail.Look(); // what is in a backup before the first look is not followed
    std::vector<std::string> written;
    while (tail.Rotations() < 10 && written.size() < 100'000) {
        const std::uint64_t rotations = tail.Rotations();
        for (int i = 0; i < 20; ++i) {
            written.push_back("line " + std::to_string(written.size()));
            // The limit is passed once between two looks, somewhere in the middle.
            log.WriteLine(written.back(), i == 11 ? 0 : 1U << 30);
        }
        tail.Look();
        ASSERT_EQ(tail.Rotations(), rotations + 1);
    }
    log.Close();
    tail.Look();
    std::erase_if(lines, [](const std::string& line) { return line.find("*****") != std::string::npos; });
    EXPECT_EQ(lines, written);
    EXPECT_TRUE(std::filesystem::exists(folder.Path() / L"MorvanePortRouter.log.BAK"));
}

TEST_F(Tail, LeavesTheBackupReplaceable)
{
    LogFile log;
    log.Open(path, true);
    log.WriteLine("first", 1U << 30);
    tail.Look();
    for (const char* line : {"second", "third"}) {
        log.WriteLine(line, 0);
        tail.Look();
        // Windows replaces no file that is open without sharing everything.
        const win32::FileHandle backup(::CreateFileW((path.wstring() + L".BAK").c_str(), GENERIC_READ | DELETE, 0,
                                                     nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        EXPECT_TRUE(backup) << ::GetLastError();
    }
    log.Close();
}

} // namespace
