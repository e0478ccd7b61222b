// Windows' own message loops on the tracer's thread: an open menu, a window being moved, a scroll bar that is held.
#include "tests/unit/diag/TracerFixture.h"

#include <array>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Hundreds of lines take their time on a busy machine, and a measurement that was disturbed is repeated.
constexpr milliseconds LongPatience{120'000};

bool Eventually(const std::function<bool()>& holds)
{
    return support::WaitUntil(holds, LongPatience);
}

struct Loop
{
    const char* Name;
    void (*Begin)(HWND window, HWND list);
    void (*End)(HWND window, HWND list); // as the user does, or Windows
    DWORD Flags;                         // of GUITHREADINFO while it runs; 0: the list has captured the pointer
};

void CancelMode(HWND window, HWND /*list*/)
{
    ::PostMessageW(window, WM_CANCELMODE, 0, 0); // sent, it would not end the loop's wait for a message
}

void PressEscape(HWND window, HWND /*list*/)
{
    ::PostMessageW(window, WM_KEYDOWN, VK_ESCAPE, 0);
}

void OpenMenu(HWND window, HWND /*list*/)
{
    ::PostMessageW(window, WM_SYSCOMMAND, SC_KEYMENU, 0);
}

void BeginMoving(HWND window, HWND /*list*/)
{
    ::PostMessageW(window, WM_SYSCOMMAND, SC_MOVE, 0);
}

void HoldScrollBar(HWND /*window*/, HWND list)
{
    RECT place;
    ::GetWindowRect(list, &place);
    ::PostMessageW(list, WM_NCLBUTTONDOWN, HTVSCROLL, MAKELPARAM(place.right - 8, place.bottom - 24)); // the arrow
}

const std::array<Loop, 3> Loops{{{"Menu", &OpenMenu, &CancelMode, GUI_INMENUMODE},
                                 {"Move", &BeginMoving, &PressEscape, GUI_INMOVESIZE},
                                 {"ScrollBar", &HoldScrollBar, &CancelMode, 0}}};

class TracerInLoop : public TracerTest, public testing::WithParamInterface<Loop>
{
protected:
    bool WaitForLine(std::string_view part) { return TracerTest::WaitForLine(part, LongPatience); }

    /// Enough lines for a scroll bar, then the loop.
    void StartAndBeginLoop()
    {
        Start(ToBoth);
        Trace(ToBoth, 0, 60);
        ASSERT_TRUE(Eventually([] { return WindowLines() == 60; }));
        BeginLoop();
    }

    void BeginLoop()
    {
        GetParam().Begin(DebugWindow(), DebugList());
        ASSERT_TRUE(Eventually([] { return IsInLoop(); }));
    }

    static void EndLoop()
    {
        GetParam().End(DebugWindow(), DebugList());
        ASSERT_TRUE(Eventually([] { return !IsInLoop(); }));
    }

    static bool IsInLoop()
    {
        GUITHREADINFO info{};
        info.cbSize = sizeof info;
        const HWND window = DebugWindow();
        if (window == nullptr || !::GetGUIThreadInfo(::GetWindowThreadProcessId(window, nullptr), &info)) {
            return false;
        }
        return GetParam().Flags != 0 ? (info.flags & GetParam().Flags) != 0 : info.hwndCapture == DebugList();
    }

    milliseconds TimeFor(int lines, const std::string& last)
    {
        const auto begin = steady_clock::now();
        Trace(ToFile, 0, lines);
        m_tracer->AddTrace(ToFile, last);
        EXPECT_TRUE(WaitForLine(last));
        return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    }
};

TEST_P(TracerInLoop, WritesEveryLineInOrder)
{
    ASSERT_NO_FATAL_FAILURE(StartAndBeginLoop());
    Trace(ToFile, 1000, 100);
    ASSERT_TRUE(WaitForLine("] 1099"));
    m_tracer->AddTrace(ToBoth, "a line by itself");
    ASSERT_TRUE(WaitForLine("a line by itself"));
    EXPECT_TRUE(Eventually([] { return WindowLines() == 61; }));
    EXPECT_TRUE(IsInLoop());
    const Lines lines = Log();
    ASSERT_GE(lines.size(), 161u);
    for (std::size_t i = 0; i < 100; ++i) {
        ASSERT_EQ(WithoutStamp(lines.at(61 + i)), std::to_string(1000 + i));
    }
}

TEST_P(TracerInLoop, WritesWhatWasQueuedBeforeTheLoopBegan)
{
    Start(ToBoth);
    Trace(ToBoth, 0, 60);
    ASSERT_TRUE(Eventually([] { return WindowLines() == 60; }));
    Block();
    m_tracer->AddTrace(ToFile, "stuck");
    ASSERT_TRUE(WaitUntilBlocked());
    Trace(ToFile, 1000, 100);
    GetParam().Begin(DebugWindow(), DebugList());
    Unblock();
    EXPECT_TRUE(WaitForLine("] 1099"));
    EXPECT_TRUE(Eventually([] { return IsInLoop(); }));
}

TEST_P(TracerInLoop, IsAsFastAsOutside)
{
    constexpr int Count = 100;
    ASSERT_NO_FATAL_FAILURE(StartAndBeginLoop());
    int attempt = 0;
    EXPECT_TRUE(Eventually([&] {
        const std::string number = std::to_string(++attempt);
        const milliseconds inside = TimeFor(Count, "inside " + number);
        EXPECT_TRUE(IsInLoop());
        EndLoop();
        const milliseconds outside = TimeFor(Count, "outside " + number);
        if (2 * inside <= 3 * outside) {
            return true;
        }
        BeginLoop();
        return false;
    }));
}

TEST_P(TracerInLoop, EndsAtOnceWithItsLastLinesAndTheBanner)
{
    ASSERT_NO_FATAL_FAILURE(StartAndBeginLoop());
    Trace(ToFile, 1000, 100);
    const auto begin = steady_clock::now();
    EXPECT_TRUE(m_tracer->Stop());
    EXPECT_LT(steady_clock::now() - begin, milliseconds(4000)) << "the limit is 5 s";
    const Lines lines = Log();
    EXPECT_EQ(CountLines(lines, "] 1099"), 1u);
    EXPECT_EQ(WithoutStamp(lines.back()), "********* End Logging *********");
}

TEST_P(TracerInLoop, AppliesSettingsWhenTheLoopHasEnded)
{
    ASSERT_NO_FATAL_FAILURE(StartAndBeginLoop());
    SetOptions(ToFile); // without the window
    m_tracer->AddTrace(ToFile, "goes on");
    ASSERT_TRUE(WaitForLine("goes on"));
    EXPECT_TRUE(IsInLoop());
    EndLoop();
    EXPECT_TRUE(Eventually([] { return DebugWindow() == nullptr; }));
}

INSTANTIATE_TEST_SUITE_P(Each, TracerInLoop, testing::ValuesIn(Loops),
                         [](const testing::TestParamInfo<Loop>& loop) { return std::string(loop.param.Name); });

} // namespace
