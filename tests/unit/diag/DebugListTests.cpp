// The list of lines in the debug window.
#include "tests/unit/diag/DebugWindowFixture.h"

namespace {

WNDPROC g_listProcedure;
int g_refusals;

/// A list that has no memory for its next line.
LRESULT CALLBACK FullList(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    if (message == LB_ADDSTRING && g_refusals > 0) {
        --g_refusals;
        return LB_ERRSPACE;
    }
    return ::CallWindowProcW(g_listProcedure, window, message, wParam, lParam);
}

DWORD g_paintings;

LRESULT CALLBACK PaintCountingList(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    g_paintings += message == WM_PAINT ? 1 : 0;
    return ::CallWindowProcW(g_listProcedure, window, message, wParam, lParam);
}

class DebugListTest : public DebugWindowTest
{
protected:
    DebugListTest() { m_window.Create(); }

    void Subclass(WNDPROC procedure)
    {
        g_listProcedure = reinterpret_cast<WNDPROC>(
            ::SetWindowLongPtrW(List(), GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(procedure)));
    }

    void RefuseLines(int count)
    {
        g_refusals = count;
        Subclass(&FullList);
    }

    void CountPaintings()
    {
        g_paintings = 0;
        Subclass(&PaintCountingList);
    }

    /// Brings the painting timer's time forward. False when the timer does not run: nothing is left to paint.
    bool PaintNow()
    {
        if (!::KillTimer(m_window.Window(), DebugList::PaintTimer)) {
            return false;
        }
        ::SendMessageW(m_window.Window(), WM_TIMER, DebugList::PaintTimer, 0);
        return true;
    }
};

TEST_F(DebugListTest, IsASortedListBoxWithBothScrollBars)
{
    std::wstring name(20, L'\0');
    name.resize(static_cast<std::size_t>(::GetClassNameW(List(), name.data(), 20)));
    EXPECT_EQ(::_wcsicmp(name.c_str(), L"LISTBOX"), 0);
    AddLines(500); // the upright scroll bar is there when it is needed
    ASSERT_TRUE(PumpUntil([&] { return (::GetWindowLongPtrW(List(), GWL_STYLE) & WS_VSCROLL) != 0; }));
    const LONG_PTR wanted =
        WS_CHILD | WS_VISIBLE | WS_VSCROLL | WS_HSCROLL | LBS_NOTIFY | LBS_SORT | LBS_NOINTEGRALHEIGHT;
    const LONG_PTR style = ::GetWindowLongPtrW(List(), GWL_STYLE);
    EXPECT_EQ(style & wanted, wanted);
    // Windows turns the plain border of a control into an edge.
    EXPECT_TRUE((style & WS_BORDER) != 0 || (::GetWindowLongPtrW(List(), GWL_EXSTYLE) & WS_EX_CLIENTEDGE) != 0);
}

TEST_F(DebugListTest, HasTheStockFontAndScrollsSidewaysTo2000Pixels)
{
    EXPECT_EQ(::SendMessageW(List(), WM_GETFONT, 0, 0),
              reinterpret_cast<LRESULT>(::GetStockObject(ANSI_VAR_FONT)));
    EXPECT_EQ(::SendMessageW(List(), LB_GETHORIZONTALEXTENT, 0, 0), 2000);
}

TEST_F(DebugListTest, FillsTheWindowAlsoAfterSizing)
{
    for (const int width : {500, 320, 700}) {
        ::MoveWindow(m_window.Window(), 10, 10, width, 300, TRUE);
        RECT client;
        ::GetClientRect(m_window.Window(), &client);
        RECT list;
        ::GetWindowRect(List(), &list);
        ::MapWindowPoints(nullptr, m_window.Window(), reinterpret_cast<POINT*>(&list), 2);
        EXPECT_EQ(list, client);
    }
}

TEST_F(DebugListTest, LinesStandInTheOrderOfTheirText)
{
    EXPECT_EQ(m_window.AddLine("[01-01-09 10:00:01:0000] b", false), 0);
    EXPECT_EQ(m_window.AddLine("[01-01-09 10:00:02:0000] c", false), 1);
    EXPECT_EQ(m_window.AddLine("[01-01-09 10:00:00:0000] a", false), 0);
    EXPECT_EQ(Line(0), L"[01-01-09 10:00:00:0000] a");
    EXPECT_EQ(Line(2), L"[01-01-09 10:00:02:0000] c");
}

TEST_F(DebugListTest, TextIsConvertedFromTheAnsiCodePage)
{
    // The Euro sign of Windows' western code page is another character in each other one.
    wchar_t converted = L'\0';
    ASSERT_EQ(::MultiByteToWideChar(CP_ACP, 0, "\x80", 1, &converted, 1), 1);
    ASSERT_NE(converted, L'\x80') << "or it would look the same without conversion";
    m_window.AddLine("3 \x80", false);
    EXPECT_EQ(Line(0), std::wstring(L"3 ") + converted);
}

TEST_F(DebugListTest, TenThousandLinesStandAndTheNextOneEmptiesTheListFirst)
{
    AddLines(10'000);
    EXPECT_EQ(Count(), 10'000);
    EXPECT_EQ(m_window.AddLine("the 10001st", false), 0);
    EXPECT_EQ(Count(), 1);
    EXPECT_EQ(Line(0), L"the 10001st");
}

TEST_F(DebugListTest, FullListIsEmptiedAndTheLineAddedAgain)
{
    AddLines(10);
    RefuseLines(1);
    EXPECT_EQ(m_window.AddLine("again", false), 0);
    EXPECT_EQ(Count(), 1);
}

TEST_F(DebugListTest, LineThatIsRefusedTwiceIsLostAndNothingElse)
{
    AddLines(10);
    RefuseLines(2);
    EXPECT_LT(m_window.AddLine("lost", false), 0);
    EXPECT_EQ(Count(), 0);
    EXPECT_EQ(m_window.AddLine("next", false), 0);
}

TEST_F(DebugListTest, LinesAddedWithoutScrollingLeaveTheViewWhereItIs)
{
    AddLines(500);
    PaintNow();
    EXPECT_EQ(Top(), 0);
}

TEST_F(DebugListTest, ScrollToBringsTheLineIntoView)
{
    AddLines(500);
    m_window.ScrollTo(200);
    EXPECT_TRUE(PumpUntil([&] { return Top() == 200; }));
    m_window.ScrollTo(499);
    EXPECT_TRUE(PumpUntil([&] { return Top() > 400; }));
}

TEST_F(DebugListTest, ScrollToTheFirstLineOrToNoneDoesNothing)
{
    AddLines(500);
    m_window.ScrollTo(200);
    ASSERT_TRUE(PumpUntil([&] { return Top() == 200; }));
    for (const int index : {0, -1}) {
        m_window.AddLine("999999", false);
        m_window.ScrollTo(index);
        PaintNow();
        EXPECT_EQ(Top(), 200);
    }
}

TEST_F(DebugListTest, LineAddedWithTheScrollFlagIsBroughtIntoView)
{
    AddLines(500);
    m_window.AddLine("999999", true);
    EXPECT_TRUE(PumpUntil([&] { return Top() > 400; }));
}

TEST_F(DebugListTest, FirstLineAfterAQuietTimeIsPaintedAtOnce)
{
    AddLines(500);
    PaintNow();
    // Without a message in between: what is awaited is that the time passes.
    ASSERT_TRUE(support::WaitUntil([&] {
        m_window.ScrollTo(200);
        return Top() == 200;
    }));
}

TEST_F(DebugListTest, HeldListGetsItsLinesButDoesNotScroll)
{
    AddLines(500);
    Command(HoldCommand);
    m_window.ScrollTo(200);
    m_window.AddLine("999999", true);
    PaintNow();
    EXPECT_EQ(Top(), 0);
    EXPECT_EQ(Count(), 501);
    Command(ReleaseCommand);
    m_window.ScrollTo(200);
    EXPECT_TRUE(PumpUntil([&] { return Top() == 200; }));
}

TEST_F(DebugListTest, HeldStaysHeldWhenTheWindowComesBackUntilHoldAndRelease)
{
    Command(HoldCommand);
    m_window.Destroy();
    m_window.Create();
    EXPECT_EQ(MenuBar().back(), L"&Hold/151");
    AddLines(500);
    m_window.ScrollTo(200);
    PaintNow();
    EXPECT_EQ(Top(), 0);
    Command(HoldCommand);
    Command(ReleaseCommand);
    m_window.ScrollTo(200);
    EXPECT_TRUE(PumpUntil([&] { return Top() == 200; }));
}

TEST_F(DebugListTest, FloodOfLinesIsPaintedOnlyNowAndThen)
{
    CountPaintings();
    const DWORD begin = ::GetTickCount();
    for (int i = 0; i < 3000; ++i) {
        AddLines(1);
        m_window.ScrollTo(i);
    }
    const DWORD duration = ::GetTickCount() - begin;
    EXPECT_LE(g_paintings, duration / DebugList::PaintInterval + 2);
    PaintNow();
    EXPECT_EQ(Count(), 3000);
    EXPECT_GT(Top(), 2900);
    EXPECT_FALSE(PaintNow()) << "painted is painted";
}

} // namespace
