// What is traced where, and how settings take effect.
#include "tests/support/RouterNames.h"
#include "tests/unit/diag/TracerFixture.h"
#include "win32/Event.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

TEST_F(TracerTest, LogFolderLiesBesideTheProgramByDefault)
{
    const CDebugThread::Owner tracer = CDebugThread::Create();
    const std::wstring name = support::UniqueName(std::wstring_view(L"Default")) + L".log";
    tracer->SetOptions(ToFile, name.c_str(), 10, false); // over what a broken run left
    ASSERT_TRUE(tracer->Start());
    ASSERT_TRUE(support::WaitUntil([&] { return !tracer->Names().LogFolder.empty(); }));
    ASSERT_TRUE(tracer->Stop());
    EXPECT_EQ(tracer->Names().LogFolder, win32::FolderOf(*win32::ModulePath()) + L"Log\\");
    EXPECT_EQ(tracer->Names().LogFilePath, tracer->Names().LogFolder + name);
    EXPECT_EQ(ReadLines(tracer->Names().LogFilePath).size(), 3u);
    ::DeleteFileW(tracer->Names().LogFilePath.c_str());
}

TEST_F(TracerTest, FileNameIsDebugLogUntilOneIsGivenAndStaysWhenNoneIs)
{
    EXPECT_EQ(m_tracer->Names().LogFileName, L"Debug.log");
    m_tracer->SetOptions(0, nullptr, 10, true);
    EXPECT_EQ(m_tracer->Names().LogFileName, L"Debug.log");
    m_tracer->SetOptions(0, L"MorvanePortRouter.log", 10, true);
    m_tracer->SetOptions(0, nullptr, 10, true);
    EXPECT_EQ(m_tracer->Names().LogFileName, L"MorvanePortRouter.log");
}

TEST_F(TracerTest, PathAndFolderAreEmptyBeforeAFileWasWanted)
{
    Start(ToWindow);
    EXPECT_TRUE(support::WaitUntil([] { return DebugWindow() != nullptr; }));
    EXPECT_EQ(m_tracer->Names().LogFolder, L"");
    EXPECT_EQ(m_tracer->Names().LogFilePath, L"");
}

TEST_F(TracerTest, LogBeginsAndEndsWithItsBanners)
{
    Start(ToFile);
    m_tracer->AddTrace(ToFile, "hello");
    ASSERT_TRUE(WaitForLine("hello"));
    ASSERT_TRUE(m_tracer->Stop());
    const Lines lines = Log();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(WithoutStamp(lines.at(0)), "******** Begin Logging ********");
    EXPECT_TRUE(IsStamped(lines.at(1)));
    EXPECT_EQ(WithoutStamp(lines.at(1)), "hello");
    EXPECT_EQ(lines.at(2), "********* Debug Tracer Terminating *********");
    EXPECT_TRUE(IsStamped(lines.at(3)));
    EXPECT_EQ(WithoutStamp(lines.at(3)), "********* End Logging *********");
}

TEST_F(TracerTest, LowHalfOfAMaskReachesTheWindowAndHighHalfTheFile)
{
    Start(ToBoth);
    m_tracer->AddTrace(ToWindow, "window only");
    m_tracer->AddTrace(ToFile, "file only");
    m_tracer->AddTrace(ToBoth, "both");
    ASSERT_TRUE(WaitForLine("both"));
    EXPECT_TRUE(support::WaitUntil([] { return WindowLines() == 2; }));
    EXPECT_EQ(CountLines(Log(), "window only"), 0u);
    EXPECT_EQ(CountLines(Log(), "file only"), 1u);
    const std::wstring shown = WindowText();
    EXPECT_NE(shown.find(L"] window only"), std::wstring::npos);
    EXPECT_NE(shown.find(L"] both"), std::wstring::npos);
}

TEST_F(TracerTest, FilterOfZeroDropsEveryTrace)
{
    Start(0);
    m_tracer->AddTrace(0xFFFFFFFF, "dropped");
    SetOptions(ToFile);
    ASSERT_TRUE(WaitForLine("Begin Logging"));
    ASSERT_TRUE(m_tracer->Stop());
    EXPECT_EQ(CountLines(Log(), "dropped"), 0u);
}

TEST_F(TracerTest, TraceWhoseMaskDoesNotMeetTheFilterIsDropped)
{
    Start(0x00010000);
    m_tracer->AddTrace(0x00020000, "dropped");
    m_tracer->AddTrace(0x00030000, "kept");
    ASSERT_TRUE(WaitForLine("kept"));
    EXPECT_EQ(CountLines(Log(), "dropped"), 0u);
}

TEST_F(TracerTest, FilterBelowTheUpperHalfNeverOpensALogFile)
{
    Start(0xFFFF);
    m_tracer->AddTrace(0xFFFFFFFF, "line");
    ASSERT_TRUE(support::WaitUntil([] { return WindowLines() == 1; }));
    ASSERT_TRUE(m_tracer->Stop());
    EXPECT_FALSE(Exists(m_logFolder));
}

TEST_F(TracerTest, FilterWithAnEmptyLowerHalfNeverCreatesTheWindow)
{
    Start(0xFFFF0000);
    m_tracer->AddTrace(0xFFFFFFFF, "line");
    ASSERT_TRUE(WaitForLine("line"));
    EXPECT_EQ(DebugWindow(), nullptr);
}

TEST_F(TracerTest, NothingIsTakenBeforeStartAndAfterStop)
{
    m_tracer->SetOptions(ToFile, L"MorvanePortRouter.log", 10, true);
    m_tracer->AddTrace(ToFile, "too early");
    Start(ToFile);
    ASSERT_TRUE(m_tracer->Stop());
    EXPECT_EQ(Log().size(), 3u);
    m_tracer->AddTrace(ToFile, "too late");
    // What had been taken would come with the next start.
    ASSERT_TRUE(m_tracer->Start());
    ASSERT_TRUE(m_tracer->Stop());
    EXPECT_EQ(CountLines(Log(), "Begin Logging"), 2u);
    EXPECT_EQ(CountLines(Log(), "too "), 0u);
}

TEST_F(TracerTest, LinesAreFlushedToTheDisk)
{
    Start(ToFile);
    ASSERT_TRUE(support::WaitUntil([] { return Flushes() == 1; })) << "with the begin banner";
    m_tracer->AddTrace(ToFile, "line");
    EXPECT_TRUE(support::WaitUntil([] { return Flushes() == 2; }));
}

TEST_F(TracerTest, DebugWindowThatCannotBeCreatedIsTraced)
{
    // A class of that name whose windows refuse to be created.
    ::UnregisterClassW(support::DebugWindowClass, ::GetModuleHandleW(nullptr));
    WNDCLASSEXW refusing{};
    refusing.cbSize = sizeof refusing;
    refusing.lpfnWndProc = [](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return 0; };
    refusing.hInstance = ::GetModuleHandleW(nullptr);
    refusing.lpszClassName = support::DebugWindowClass;
    ASSERT_NE(::RegisterClassExW(&refusing), 0);
    Start(ToBoth);
    EXPECT_TRUE(WaitForLine("Debug window not created, error "));
    ASSERT_TRUE(m_tracer->Stop());
    EXPECT_TRUE(::UnregisterClassW(support::DebugWindowClass, ::GetModuleHandleW(nullptr)));
}

TEST_F(TracerTest, RawTraceHasNoStampAndAnEmptyOneWritesNothing)
{
    Start(ToFile);
    m_tracer->AddRawTrace(ToFile, "");
    m_tracer->AddRawTrace(ToFile, "raw");
    m_tracer->AddTrace(ToFile, "");
    ASSERT_TRUE(m_tracer->Stop());
    const Lines lines = Log();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(CountLines(lines, "raw"), 1u);
    EXPECT_NE(std::find(lines.begin(), lines.end(), "raw"), lines.end());
}

TEST_F(TracerTest, FileIsClosedAndOpenedAgainWhileRunning)
{
    Start(ToBoth);
    SetOptions(ToWindow);
    ASSERT_TRUE(WaitForLine("End Logging"));
    m_tracer->AddTrace(ToBoth, "not in the file");
    ASSERT_TRUE(support::WaitUntil([] { return WindowLines() == 1; }));
    SetOptions(ToBoth);
    ASSERT_TRUE(support::WaitUntil([&] { return CountLines(Log(), "Begin Logging") == 2; }));
    m_tracer->AddTrace(ToBoth, "in the file");
    ASSERT_TRUE(WaitForLine("in the file"));
    EXPECT_EQ(CountLines(Log(), "not in the file"), 0u);
}

TEST_F(TracerTest, WithoutAppendingEachOpeningBeginsAnew)
{
    Start(ToFile, 10, false);
    m_tracer->AddTrace(ToFile, "first time");
    ASSERT_TRUE(WaitForLine("first time"));
    SetOptions(0, 10, false);
    ASSERT_TRUE(WaitForLine("End Logging"));
    SetOptions(ToFile, 10, false);
    EXPECT_TRUE(support::WaitUntil([&] { return Log().size() == 1; }));
    EXPECT_EQ(CountLines(Log(), "Begin Logging"), 1u);
}

TEST_F(TracerTest, NewFileNameCountsFromTheNextOpening)
{
    Start(ToFile);
    m_tracer->SetOptions(ToFile, L"Other.log", 10, true);
    m_tracer->AddTrace(ToFile, "still here");
    ASSERT_TRUE(WaitForLine("still here"));
    SetOptions(0);
    ASSERT_TRUE(WaitForLine("End Logging"));
    SetOptions(ToFile);
    EXPECT_TRUE(support::WaitUntil([&] { return ReadLines(m_logFolder + L"Other.log").size() == 1; }));
    EXPECT_EQ(m_tracer->Names().LogFilePath, m_logFolder + L"Other.log");
}

TEST_F(TracerTest, FileIsMovedAsideOneLineAfterTheLimitOfOneMegabyte)
{
    Start(ToFile, 1);
    constexpr int Count = 1100;
    for (int i = 0; i < Count; ++i) {
        m_tracer->AddTrace(ToFile, std::string(1000, 'x'));
    }
    m_tracer->AddTrace(ToFile, "the last one");
    ASSERT_TRUE(WaitForLine("the last one"));
    ASSERT_TRUE(m_tracer->Stop());
    const std::string old = ReadText(BackupPath());
    ASSERT_FALSE(old.empty());
    ASSERT_FALSE(Log().empty());
    const std::size_t tail = std::string("********* To Be Continued *****\r\n").size();
    const std::size_t line = 25 + 1000 + 2;
    EXPECT_GT(old.size() - tail, 1'048'576u);
    EXPECT_LE(old.size() - tail, 1'048'576u + line);
    EXPECT_EQ(ReadLines(BackupPath()).back(), "********* To Be Continued *****");
    EXPECT_EQ(Log().front(), "********** Continued **********");
    EXPECT_EQ(CountLines(Log(), "xxx") + CountLines(ReadLines(BackupPath()), "xxx"), std::size_t{Count});
}

TEST_F(TracerTest, LimitOfZeroMovesTheFileAsideBeforeEveryLine)
{
    Start(ToFile, 0);
    Trace(ToFile, 1, 3);
    ASSERT_TRUE(m_tracer->Stop());
    const Lines old = ReadLines(BackupPath());
    ASSERT_EQ(old.size(), 3u);
    EXPECT_EQ(WithoutStamp(old.at(1)), "2");
    EXPECT_EQ(WithoutStamp(Log().at(1)), "3");
}

TEST_F(TracerTest, LimitTakesEffectWhileRunning)
{
    Start(ToFile, 10);
    Trace(ToFile, 1, 1);
    ASSERT_TRUE(WaitForLine("] 1"));
    EXPECT_FALSE(Exists(BackupPath()));
    SetOptions(ToFile, 0);
    Trace(ToFile, 2, 1);
    EXPECT_TRUE(support::WaitUntil([&] { return CountLines(Log(), "] 2") == 1; }));
    EXPECT_TRUE(Exists(BackupPath()));
}

TEST_F(TracerTest, WindowComesAndGoesWithTheDisplayBitsWhileTracesRun)
{
    Start(ToFile);
    const win32::Event stop(win32::Event::Kind::ManualReset);
    std::thread producer([&] {
        do {
            m_tracer->AddTrace(ToBoth, "traffic");
        } while (!stop.Wait(1));
    });
    for (int i = 0; i < 5; ++i) {
        SetOptions(ToBoth);
        EXPECT_TRUE(support::WaitUntil([] { return WindowLines() > 0; }));
        SetOptions(ToFile);
        EXPECT_TRUE(support::WaitUntil([] { return DebugWindow() == nullptr; }));
    }
    stop.Set();
    producer.join();
    ASSERT_TRUE(m_tracer->Stop());
    EXPECT_EQ(CountLines(Log(), "Begin Logging"), 1u) << "the file stays open all the time";
}

TEST_F(TracerTest, CloseEntryOfTheWindowIsGreyedUnlessItMayBeClosed)
{
    m_tracer->SetShowWindow(false);
    Start(ToWindow);
    ASSERT_TRUE(support::WaitUntil([] { return DebugList() != nullptr; }));
    EXPECT_TRUE(support::WaitUntil([] {
        const UINT state = ::GetMenuState(::GetSystemMenu(DebugWindow(), FALSE), SC_CLOSE, MF_BYCOMMAND);
        return state != static_cast<UINT>(-1) && (state & MF_GRAYED) != 0;
    }));
}

TEST_F(TracerTest, WindowIsGoneAfterStop)
{
    Start(ToBoth);
    ASSERT_TRUE(support::WaitUntil([] { return DebugWindow() != nullptr; }));
    ASSERT_TRUE(m_tracer->Stop());
    EXPECT_EQ(DebugWindow(), nullptr);
}

TEST_F(TracerTest, StopsAtOnceWhenThereIsNothingToDo)
{
    Start(0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(m_tracer->Stop());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2500)) << "the limit is 5 s";
}

TEST_F(TracerTest, StoppingTwiceIsHarmless)
{
    Start(ToFile);
    EXPECT_TRUE(m_tracer->Stop());
    EXPECT_TRUE(m_tracer->Stop());
    EXPECT_EQ(CountLines(Log(), "End Logging"), 1u);
}

TEST_F(TracerTest, NeverStartedTracerStopsAndGoes)
{
    EXPECT_TRUE(m_tracer->Stop());
    m_tracer.reset();
}

} // namespace
