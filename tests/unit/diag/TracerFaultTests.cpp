// Disks that are full, slow or not there; queues that overflow; ends with much still to write.
#include "tests/unit/diag/TracerFixture.h"

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds LongPatience{120'000}; // for thousands of lines

/// Number after `before` in a line; -1 when the line has no such text.
int NumberAfter(const std::string& line, std::string_view before)
{
    const std::size_t place = line.find(before);
    if (place == std::string::npos) {
        return -1;
    }
    int number = -1;
    std::from_chars(line.data() + place + before.size(), line.data() + line.size(), number);
    return number;
}

TEST_F(TracerTest, At1500QueuedEntriesTheEndWritesAThousandAndCountsTheRest)
{
    BlockUntilStop();
    Start(ToFile);
    ASSERT_TRUE(WaitUntilBlocked());
    Trace(ToFile, 0, 1500);
    m_tracer->Stop(); // on a busy machine in vain, but the thread still ends in order
    ASSERT_TRUE(WaitForLine("End Logging", LongPatience));

    const Lines lines = Log();
    ASSERT_EQ(lines.size(), 1u + 1 + 1000 + 1 + 1);
    EXPECT_EQ(lines.at(1), "********* Debug Tracer Terminating *********");
    EXPECT_EQ(WithoutStamp(lines.at(2)), "0");
    EXPECT_EQ(WithoutStamp(lines.at(1001)), "999");
    EXPECT_EQ(lines.at(1002), "********* 500 Entries Not Yet Processed ********* ");
    EXPECT_EQ(WithoutStamp(lines.at(1003)), "********* End Logging *********");
}

TEST_F(TracerTest, AtAThousandQueuedEntriesTheEndLosesNone)
{
    BlockUntilStop();
    Start(ToFile);
    ASSERT_TRUE(WaitUntilBlocked());
    Trace(ToFile, 0, 1000);
    m_tracer->Stop(); // as above
    ASSERT_TRUE(WaitForLine("End Logging", LongPatience));
    EXPECT_EQ(Log().size(), 1u + 1 + 1000 + 1);
    EXPECT_EQ(CountLines(Log(), "Not Yet Processed"), 0u);
}

TEST_F(TracerTest, BacklogOfTenThousandIsGivenUpAsAWhole)
{
    Block();
    Start(ToBoth);
    ASSERT_TRUE(WaitUntilBlocked());
    Trace(ToFile, 0, 10'001); // the first is taken before the length is looked at
    Unblock();
    ASSERT_TRUE(WaitForLine("Buffer overflow"));
    ASSERT_TRUE(m_tracer->Stop());
    const Lines lines = Log();
    EXPECT_EQ(WithoutStamp(lines.at(1)), "0");
    EXPECT_EQ(WithoutStamp(lines.at(2)), "Buffer overflow, removing 10000 entries");
    EXPECT_EQ(lines.size(), 5u);
}

TEST_F(TracerTest, BacklogOfOneLessIsWrittenCompletely)
{
    Block();
    Start(ToFile);
    ASSERT_TRUE(WaitUntilBlocked());
    Trace(ToFile, 0, 10'000);
    Unblock();
    ASSERT_TRUE(WaitForLine("] 9999", LongPatience));
    EXPECT_EQ(CountLines(Log(), "Buffer overflow"), 0u);
    EXPECT_EQ(CountLines(Log(), "] "), 10'001u);
}

TEST_F(TracerTest, OverflowEmptiesTheWindowAndTellsItThere)
{
    Start(ToBoth);
    Trace(ToWindow, 0, 20);
    ASSERT_TRUE(support::WaitUntil([] { return WindowLines() == 20; }));
    Block();
    m_tracer->AddTrace(ToFile, "stuck");
    ASSERT_TRUE(WaitUntilBlocked());
    Trace(ToFile, 0, 12'000);
    Unblock();
    ASSERT_TRUE(WaitForLine("Buffer overflow, removing 12000 entries"));
    EXPECT_TRUE(support::WaitUntil([] { return WindowLines() == 1; }));
}

TEST_F(TracerTest, TracerGoesOnAfterAnOverflow)
{
    Block();
    Start(ToFile);
    ASSERT_TRUE(WaitUntilBlocked());
    Trace(ToFile, 0, 30'000);
    Unblock();
    ASSERT_TRUE(WaitForLine("Buffer overflow, removing 29999 entries"));
    m_tracer->AddTrace(ToFile, "afterwards");
    EXPECT_TRUE(WaitForLine("afterwards"));
}

TEST_F(TracerTest, OverflowUnderAFilterThatBecameZeroIsNotReported)
{
    Block();
    Start(ToFile);
    ASSERT_TRUE(WaitUntilBlocked());
    Trace(ToFile, 0, 10'001);
    SetOptions(0);
    Unblock();
    ASSERT_TRUE(WaitForLine("End Logging"));
    ASSERT_TRUE(m_tracer->Stop());
    EXPECT_EQ(Log().size(), 2u);
}

TEST_F(TracerTest, LogThatIsAFileInsteadOfAFolderLosesNoWindowLine)
{
    WriteText((m_folder.Path() / L"Log").wstring(), "in the way");
    m_tracer->SetOptions(ToBoth, L"MorvanePortRouter.log", 10, true);
    ASSERT_TRUE(m_tracer->Start());
    Trace(ToBoth, 0, 100);
    ASSERT_TRUE(support::WaitUntil([] { return WindowLines() == 100; }));

    ::DeleteFileW((m_folder.Path() / L"Log").c_str());
    m_tracer->SetOptions(ToBoth, nullptr, 10, true); // the next settings try again
    ASSERT_TRUE(WaitForLine("Begin Logging"));
    m_tracer->AddTrace(ToFile, "now it works");
    EXPECT_TRUE(WaitForLine("now it works"));
}

TEST_F(TracerTest, LogHeldOpenElsewhereIsTriedAgainAtTheNextSettings)
{
    std::filesystem::create_directory(m_logFolder);
    win32::FileHandle holder(
        ::CreateFileW(LogPath().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    ASSERT_TRUE(holder);
    m_tracer->SetOptions(ToBoth, L"MorvanePortRouter.log", 10, true);
    ASSERT_TRUE(m_tracer->Start());
    m_tracer->AddTrace(ToBoth, "dropped");
    ASSERT_TRUE(support::WaitUntil([] { return WindowLines() == 1; }));
    holder.Reset();
    SetOptions(ToBoth);
    ASSERT_TRUE(WaitForLine("Begin Logging"));
    EXPECT_EQ(CountLines(Log(), "dropped"), 0u);
}

TEST_F(TracerTest, LogThatRotationCouldNotOpenAgainGoesOnLater)
{
    Start(ToFile, 0);
    RefuseFiles(true);
    m_tracer->AddTrace(ToFile, "lost");
    ASSERT_TRUE(support::WaitUntil([&] { return Exists(BackupPath()) && !Exists(LogPath()); }));
    RefuseFiles(false);
    ASSERT_TRUE(support::WaitUntil([&] {
        m_tracer->AddTrace(ToFile, "found");
        return Exists(LogPath()) && CountLines(Log(), "found") != 0;
    }));
    EXPECT_EQ(CountLines(Log(), "lost"), 0u);
}

TEST_F(TracerTest, ProgramWhosePathIsUnknownLogsToTheRootOfDriveC)
{
    SetProgramPath(std::nullopt);
    const std::wstring name = support::UniqueName(std::wstring_view(L"Root")) + L".log";
    m_tracer->SetOptions(ToFile, name.c_str(), 10, true);
    ASSERT_TRUE(m_tracer->Start());
    EXPECT_TRUE(support::WaitUntil([&] { return m_tracer->Names().LogFilePath == L"c:\\" + name; }));
    ASSERT_TRUE(m_tracer->Stop());
    EXPECT_EQ(m_tracer->Names().LogFolder, L"c:\\");
    ::DeleteFileW(m_tracer->Names().LogFilePath.c_str());
}

TEST_F(TracerTest, ProgramPathWithoutABackslashMeansNoFile)
{
    SetProgramPath(L"Program.exe");
    m_tracer->SetOptions(ToBoth, L"MorvanePortRouter.log", 10, true);
    ASSERT_TRUE(m_tracer->Start());
    m_tracer->AddTrace(ToBoth, "line");
    ASSERT_TRUE(support::WaitUntil([] { return WindowLines() == 1; }));
    EXPECT_EQ(m_tracer->Names().LogFilePath, L"");
    EXPECT_EQ(m_tracer->Names().LogFolder, L"");
    EXPECT_EQ(WrittenLines(), 0);
}

TEST_F(TracerTest, DiskThatHangsHoldsUpNoProducer)
{
    Block();
    Start(ToFile);
    ASSERT_TRUE(WaitUntilBlocked());
    Trace(ToFile, 0, 200'000);
    // Back here, with the writer still stuck: no producer waited for it.
    EXPECT_EQ(WrittenLines(), 0);
    Unblock();
    EXPECT_TRUE(WaitForLine("Buffer overflow, removing 199999 entries"));
}

TEST_F(TracerTest, TracerThatDoesNotEndInFiveSecondsIsAbandonedAlive)
{
    Block();
    Start(ToFile);
    ASSERT_TRUE(WaitUntilBlocked());
    const auto begin = steady_clock::now();
    EXPECT_FALSE(m_tracer->Stop());
    const auto waited = steady_clock::now() - begin;
    EXPECT_GE(waited, milliseconds(4900));
    EXPECT_LT(waited, milliseconds(15'000));

    const auto again = steady_clock::now();
    EXPECT_FALSE(m_tracer->Stop()) << "nothing is waited for twice";
    EXPECT_LT(steady_clock::now() - again, milliseconds(4000));

    m_tracer.reset();
    Unblock();
    EXPECT_TRUE(WaitForLine("End Logging")) << "the thread ends in order on memory that is still there";
}

/// Eight threads, each with its own numbers; the reader checks that each thread's lines kept their order.
class TracerLoadTest : public TracerTest
{
protected:
    static constexpr int Producers = 8;

    template <class Pace>
    void Produce(int linesEach, Pace pace)
    {
        std::vector<std::thread> producers;
        for (int producer = 0; producer < Producers; ++producer) {
            producers.emplace_back([this, producer, linesEach, pace] {
                for (int line = 0; line < linesEach; ++line) {
                    pace();
                    m_tracer->AddTrace(ToFile, "P" + std::to_string(producer) + " N" + std::to_string(line));
                }
            });
        }
        for (std::thread& producer : producers) {
            producer.join();
        }
        SendLast();
        ASSERT_TRUE(support::WaitUntil([this] { return EndsWithLast(); }, LongPatience));
    }

    void SendLast()
    {
        m_tracer->AddTrace(ToFile, Last);
        ++m_lastSent;
    }

    /// A flood may take the last line with it, which is then sent again. Looks at the last bytes of the log only:
    /// reading megabytes again and again would take the tracer's processor.
    bool EndsWithLast()
    {
        std::ifstream in(std::filesystem::path(LogPath()), std::ios::binary);
        in.seekg(-TailLength, std::ios::end);
        const std::string tail{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        const std::size_t overflow = tail.rfind("Buffer overflow");
        if (overflow != std::string::npos && overflow == tail.rfind("] ") + 2) {
            SendLast();
        }
        return tail.find(Last) != std::string::npos;
    }
    static constexpr std::streamoff TailLength = 200;
    static constexpr const char* Last = "all sent";
    int m_lastSent = 0;

    /// Counts the lines, and fails where a thread's numbers do not rise.
    int CountInOrder(const Lines& lines)
    {
        std::array<int, Producers> last{};
        last.fill(-1);
        int count = 0;
        for (const std::string& line : lines) {
            const int producer = NumberAfter(line, "] P");
            if (producer < 0 || producer >= Producers) {
                continue;
            }
            const int number = NumberAfter(line, " N");
            EXPECT_GT(number, last[static_cast<std::size_t>(producer)]) << line;
            last[static_cast<std::size_t>(producer)] = number;
            ++count;
        }
        return count;
    }
};

TEST_F(TracerLoadTest, AllLinesOfEightThreadsArriveBelowTheLimit)
{
    constexpr int linesEach = 2'500;
    Start(ToFile, 1000);
    std::atomic<int> sent{0};
    Produce(linesEach, [&sent] {
        const int mine = ++sent;
        EXPECT_TRUE(support::WaitUntil([mine] { return mine - WrittenLines() <= 5000; }));
    });
    ASSERT_TRUE(m_tracer->Stop());
    const Lines lines = Log();
    EXPECT_EQ(CountInOrder(lines), Producers * linesEach);
    EXPECT_EQ(CountLines(lines, "Buffer overflow"), 0u);
    std::string previous;
    for (std::size_t i = 0; i + 2 < lines.size(); ++i) {
        EXPECT_LE(previous.substr(0, 25), lines[i].substr(0, 25));
        previous = lines[i];
    }
}

TEST_F(TracerLoadTest, WhatAnUnboundedFloodLosesIsCountedToTheLine)
{
    constexpr int linesEach = 12'500;
    Start(ToFile, 1000);
    Produce(linesEach, [] {});
    ASSERT_TRUE(m_tracer->Stop());
    const Lines lines = Log();
    int removed = 0;
    int notices = 0;
    for (const std::string& line : lines) {
        const int number = NumberAfter(line, "Buffer overflow, removing ");
        if (number >= 0) {
            removed += number;
            ++notices;
        }
    }
    // A notice may itself be among what the next one removed.
    const int lastRemoved = m_lastSent - static_cast<int>(CountLines(lines, Last));
    const int sum = CountInOrder(lines) + removed - lastRemoved;
    EXPECT_GE(sum, Producers * linesEach);
    EXPECT_LE(sum, Producers * linesEach + notices);
}

} // namespace
