#include "diag/LogFile.h"

#include "tests/support/TestSupport.h"
#include "tests/unit/diag/LogText.h"

#include <gtest/gtest.h>

namespace {

constexpr std::uint32_t NoLimit = 0xFFFFFFF0;
constexpr char ToBeContinued[] = "********* To Be Continued *****";
constexpr char Continued[] = "********** Continued **********";

int g_flushes;
DWORD g_ticks;

BOOL WINAPI CountFlush(HANDLE) noexcept
{
    ++g_flushes;
    return TRUE;
}

DWORD WINAPI CommandedTicks() noexcept
{
    return g_ticks;
}

bool g_diskIsFull;

BOOL WINAPI WriteIfRoom(HANDLE file, LPCVOID data, DWORD size, LPDWORD written, LPOVERLAPPED overlapped) noexcept
{
    if (!g_diskIsFull) {
        return ::WriteFile(file, data, size, written, overlapped);
    }
    *written = 0;
    ::SetLastError(ERROR_DISK_FULL);
    return FALSE;
}

bool g_filesRefused;
int g_creations;

HANDLE WINAPI CreateIfAllowed(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                              DWORD disposition, DWORD flags, HANDLE templateFile) noexcept
{
    ++g_creations;
    return g_filesRefused ? INVALID_HANDLE_VALUE
                          : ::CreateFileW(path, access, share, security, disposition, flags, templateFile);
}

class LogFileTest : public testing::Test
{
protected:
    support::TempFolder m_folder;
    const std::wstring m_path = (m_folder.Path() / L"Test.log").wstring();
    const std::wstring m_backup = m_path + L".BAK";
    LogFile m_file;

    void Write(std::initializer_list<const char*> lines, std::uint32_t limit = NoLimit)
    {
        for (const char* line : lines) {
            m_file.WriteLine(line, limit);
        }
    }
};

TEST_F(LogFileTest, OpeningWritesTheBeginBannerAfterATimeStamp)
{
    m_file.Open(m_path, true);
    ASSERT_TRUE(m_file.IsOpen());
    const Lines lines = ReadLines(m_path);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(IsStamped(lines.at(0)));
    EXPECT_EQ(WithoutStamp(lines.at(0)), "******** Begin Logging ********");
}

TEST_F(LogFileTest, ClosingWritesTheEndBannerAfterATimeStamp)
{
    m_file.Open(m_path, true);
    m_file.Close();
    EXPECT_FALSE(m_file.IsOpen());
    const Lines lines = ReadLines(m_path);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(IsStamped(lines.at(1)));
    EXPECT_EQ(WithoutStamp(lines.at(1)), "********* End Logging *********");
}

TEST_F(LogFileTest, LinesEndWithCarriageReturnAndLineFeedAndTextStaysAsItIs)
{
    m_file.Open(m_path, true);
    Write({"one\xE4", "two"});
    const std::string text = ReadText(m_path);
    EXPECT_NE(text.find("\r\none\xE4\r\ntwo\r\n"), std::string::npos);
    EXPECT_EQ(text.front(), '[') << "no byte-order mark";
}

TEST_F(LogFileTest, AppendingKeepsWhatWasThere)
{
    WriteText(m_path, "old\r\n");
    m_file.Open(m_path, true);
    Write({"new"});
    const Lines lines = ReadLines(m_path);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines.at(0), "old");
    EXPECT_EQ(lines.at(2), "new");
}

TEST_F(LogFileTest, NotAppendingBeginsAnew)
{
    WriteText(m_path, "old\r\n");
    m_file.Open(m_path, false);
    Write({"new"});
    const Lines lines = ReadLines(m_path);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines.at(1), "new");
}

TEST_F(LogFileTest, FileOfExactlyTheLimitIsNotMovedAside)
{
    m_file.Open(m_path, true);
    const auto size = static_cast<std::uint32_t>(ReadText(m_path).size());
    Write({"line"}, size);
    EXPECT_FALSE(Exists(m_backup));
    Write({"next"}, size);
    EXPECT_TRUE(Exists(m_backup));
}

TEST_F(LogFileTest, FullFileEndsWithToBeContinuedTheNextStartsWithContinued)
{
    m_file.Open(m_path, true);
    Write({"first"}, 1000);
    Write({"second"}, 1);
    const Lines old = ReadLines(m_backup);
    ASSERT_EQ(old.size(), 3u);
    EXPECT_EQ(old.at(1), "first");
    EXPECT_EQ(old.at(2), ToBeContinued);
    EXPECT_EQ(ReadLines(m_path), (Lines{Continued, "second"}));
}

TEST_F(LogFileTest, OlderBackupIsReplaced)
{
    m_file.Open(m_path, true);
    Write({"first", "second", "third"}, 0);
    EXPECT_EQ(ReadLines(m_backup), (Lines{Continued, "second", ToBeContinued}));
    EXPECT_EQ(ReadLines(m_path), (Lines{Continued, "third"}));
}

TEST_F(LogFileTest, OthersMayReadWhileItIsWritten)
{
    m_file.Open(m_path, true);
    Write({"line"});
    const win32::FileHandle reader(::CreateFileW(m_path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                 nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(reader);
    const win32::FileHandle writer(::CreateFileW(m_path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                 nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_FALSE(writer);
}

TEST_F(LogFileTest, FileHeldOpenWithoutSharingIsNotOpened)
{
    const win32::FileHandle holder(
        ::CreateFileW(m_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    ASSERT_TRUE(holder);
    m_file.Open(m_path, true);
    EXPECT_FALSE(m_file.IsOpen());
}

TEST_F(LogFileTest, BackupHeldOpenCostsTheFullFileButLoggingGoesOn)
{
    m_file.Open(m_path, true);
    const win32::FileHandle holder(
        ::CreateFileW(m_backup.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    ASSERT_TRUE(holder);
    Write({"first"}, 0);
    Write({"second"}, 1000);
    EXPECT_EQ(ReadLines(m_path), (Lines{Continued, "first", "second"}));
}

TEST_F(LogFileTest, FullDiskLosesLinesAndNothingElse)
{
    LogFile file({&::CreateFileW, &WriteIfRoom, &::FlushFileBuffers, &::GetTickCount});
    file.Open(m_path, true);
    ASSERT_TRUE(file.IsOpen());
    g_diskIsFull = true;
    for (int i = 0; i < 1000; ++i) {
        file.WriteLine("lost", NoLimit);
        file.FlushWhenDue();
    }
    g_diskIsFull = false;
    file.WriteLine("room again", NoLimit);
    file.Close();
    const Lines lines = ReadLines(m_path);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(WithoutStamp(lines.at(0)), "******** Begin Logging ********") << "it is still the same file";
    EXPECT_EQ(lines.at(1), "room again");
    EXPECT_EQ(WithoutStamp(lines.at(2)), "********* End Logging *********");
    EXPECT_FALSE(Exists(m_backup));
}

/// A log whose rotation has moved the full file aside and could not open the next one.
class InterruptedLogFile : public LogFileTest
{
protected:
    InterruptedLogFile()
    {
        g_ticks = 0xFFFFFF00; // wraps around on the way
        g_filesRefused = false;
        m_interrupted.Open(m_path, true);
        g_filesRefused = true;
        m_interrupted.WriteLine("lost", 0);
        g_creations = 0;
    }
    ~InterruptedLogFile() override { g_filesRefused = false; }

    LogFile m_interrupted{{&CreateIfAllowed, &::WriteFile, &::FlushFileBuffers, &CommandedTicks}};
};

TEST_F(InterruptedLogFile, IsNotOpenAndItsLinesAreLost)
{
    EXPECT_FALSE(m_interrupted.IsOpen());
    m_interrupted.WriteLine("lost as well", 0);
    m_interrupted.Write("and this\r\n");
    EXPECT_FALSE(Exists(m_path));
    EXPECT_EQ(ReadLines(m_backup).back(), ToBeContinued);
}

TEST_F(InterruptedLogFile, GoesOnWithTheFirstLineAfterASecond)
{
    g_filesRefused = false;
    g_ticks += 999;
    EXPECT_TRUE(m_interrupted.TakesLines());
    m_interrupted.WriteLine("lost as well", NoLimit);
    EXPECT_FALSE(Exists(m_path));
    g_ticks += 1;
    m_interrupted.WriteLine("found", NoLimit);
    m_interrupted.WriteLine("next", NoLimit);
    EXPECT_EQ(ReadLines(m_path), (Lines{Continued, "found", "next"}));
}

TEST_F(InterruptedLogFile, TriesOnceASecond)
{
    for (int line = 0; line < 50; ++line) {
        g_ticks += 100;
        m_interrupted.WriteLine("lost", NoLimit);
    }
    EXPECT_EQ(g_creations, 5);
}

TEST_F(InterruptedLogFile, KeepsWhatHasComeIntoItsPlace)
{
    WriteText(m_path, "of another program\r\n");
    g_filesRefused = false;
    g_ticks += 1000;
    m_interrupted.WriteLine("found", NoLimit);
    EXPECT_EQ(ReadLines(m_path), (Lines{"of another program", Continued, "found"}));
}

TEST_F(InterruptedLogFile, WaitsForTheNextSettingsWhenThoseCouldNotOpenIt)
{
    m_interrupted.Open(m_path, true);
    EXPECT_FALSE(m_interrupted.TakesLines());
}

class LogFileFlushTest : public LogFileTest
{
protected:
    LogFileFlushTest()
    {
        g_ticks = 5000;
        m_flushing.Open(m_path, true);
        m_flushing.FlushWhenDue(); // the first one is always due
        g_flushes = 0;
    }

    void WriteLines(int count)
    {
        for (int i = 0; i < count; ++i) {
            m_flushing.WriteLine("line", NoLimit);
        }
        m_flushing.FlushWhenDue();
    }

    LogFile m_flushing{{&::CreateFileW, &::WriteFile, &CountFlush, &CommandedTicks}};
};

TEST_F(LogFileFlushTest, FortyNineLinesWithinASecondAreNotFlushed)
{
    WriteLines(49);
    g_ticks += 999;
    m_flushing.FlushWhenDue();
    EXPECT_EQ(g_flushes, 0);
}

TEST_F(LogFileFlushTest, FiftyLinesAreFlushedAtOnceAndTheCountBeginsAnew)
{
    WriteLines(50);
    EXPECT_EQ(g_flushes, 1);
    WriteLines(49);
    EXPECT_EQ(g_flushes, 1);
    WriteLines(1);
    EXPECT_EQ(g_flushes, 2);
}

TEST_F(LogFileFlushTest, OneLineIsFlushedAfterASecond)
{
    WriteLines(1);
    g_ticks += 1000;
    m_flushing.FlushWhenDue();
    EXPECT_EQ(g_flushes, 1);
    m_flushing.FlushWhenDue();
    EXPECT_EQ(g_flushes, 1);
}

TEST_F(LogFileFlushTest, TickCountMayWrapAround)
{
    g_ticks = 0xFFFFFFFF;
    m_flushing.FlushWhenDue();
    g_flushes = 0;
    g_ticks = 998;
    m_flushing.FlushWhenDue();
    EXPECT_EQ(g_flushes, 0);
    g_ticks = 999;
    m_flushing.FlushWhenDue();
    EXPECT_EQ(g_flushes, 1);
}

TEST_F(LogFileFlushTest, OpeningAndClosingFlush)
{
    LogFile file({&::CreateFileW, &::WriteFile, &CountFlush, &CommandedTicks});
    file.Open((m_folder.Path() / L"Other.log").wstring(), true);
    EXPECT_EQ(g_flushes, 1);
    file.Close();
    EXPECT_EQ(g_flushes, 2);
}

} // namespace
