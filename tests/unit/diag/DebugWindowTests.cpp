// The window as such: its look, its place, its menu.
#include "tests/unit/diag/DebugWindowFixture.h"

#include <iomanip>
#include <sstream>

namespace {

TEST_F(DebugWindowTest, StandsAtTenTenWith500By500WhenNoPlaceIsKept)
{
    CreateProductKey();
    m_window.Create();
    EXPECT_EQ(Place(), (RECT{10, 10, 510, 510}));
}

TEST_F(DebugWindowTest, StandsInTheCornerWhenTheProductKeyDoesNotOpen)
{
    m_window.Create();
    EXPECT_EQ(Place(), (RECT{0, 0, 500, 500}));
}

TEST_F(DebugWindowTest, StandsWhereItStoodBefore)
{
    Keep(L"XOrigin", 30);
    Keep(L"YOrigin", 40);
    Keep(L"Width", 600);
    Keep(L"Height", 400);
    m_window.Create();
    EXPECT_EQ(Place(), (RECT{30, 40, 630, 440}));
}

TEST_F(DebugWindowTest, MissingValuesOfThePlaceHaveTheirDefaults)
{
    Keep(L"YOrigin", 40);
    Keep(L"Width", 600);
    m_window.Create();
    EXPECT_EQ(Place(), (RECT{10, 40, 610, 540}));
}

TEST_F(DebugWindowTest, PlaceLeftOfAndAboveTheFirstScreenIsKeptToo)
{
    Keep(L"XOrigin", static_cast<std::uint32_t>(-30));
    Keep(L"YOrigin", static_cast<std::uint32_t>(-20));
    m_window.Create();
    EXPECT_EQ(Place(), (RECT{-30, -20, 470, 480}));
}

TEST_F(DebugWindowTest, PlaceOfAMinimisedWindowCountsAsTenTen)
{
    Keep(L"XOrigin", static_cast<std::uint32_t>(-32000));
    Keep(L"YOrigin", static_cast<std::uint32_t>(-32000));
    Keep(L"Width", 600);
    Keep(L"Height", 400);
    m_window.Create();
    EXPECT_EQ(Place(), (RECT{10, 10, 610, 410}));
}

TEST_F(DebugWindowTest, PlaceFarToOneSideStaysAsStored)
{
    Keep(L"XOrigin", static_cast<std::uint32_t>(-32000));
    Keep(L"YOrigin", 40);
    m_window.Create();
    EXPECT_EQ(Place(), (RECT{-32000, 40, -31500, 540}));
}

TEST_F(DebugWindowTest, MovingAndSizingSavesThePlace)
{
    m_window.Create();
    ::MoveWindow(m_window.Window(), 50, 60, 300, 200, TRUE);
    EXPECT_EQ(Kept(L"XOrigin"), 50u);
    EXPECT_EQ(Kept(L"YOrigin"), 60u);
    EXPECT_EQ(Kept(L"Width"), 300u);
    EXPECT_EQ(Kept(L"Height"), 200u);
    ::SetWindowPos(m_window.Window(), nullptr, 0, 0, 310, 210, SWP_NOMOVE | SWP_NOZORDER);
    EXPECT_EQ(Kept(L"XOrigin"), 50u);
    EXPECT_EQ(Kept(L"Width"), 310u);
}

/// Month and day without leading zeros.
std::wstring TitleAt(const SYSTEMTIME& time)
{
    std::wostringstream title;
    title << L"Morvane Port Router - Debug Window (" << time.wMonth << L'/' << time.wDay << L' '
          << std::setfill(L'0') << std::setw(2) << time.wHour << L':' << std::setw(2) << time.wMinute << L':'
          << std::setw(2) << time.wSecond << L')';
    return title.str();
}

TEST_F(DebugWindowTest, TitleHasTheProductAndTheTimeOfCreation)
{
    // Created within one second of the clock, sooner or later.
    EXPECT_TRUE(support::WaitUntil([&] {
        m_window.Destroy();
        SYSTEMTIME now;
        ::GetLocalTime(&now);
        m_window.Create();
        std::wstring title(200, L'\0');
        title.resize(static_cast<std::size_t>(::GetWindowTextW(m_window.Window(), title.data(), 200)));
        return title == TitleAt(now);
    }));
}

TEST_F(DebugWindowTest, IsAVisibleOverlappedWindowThatClipsItsChildren)
{
    m_window.Create();
    const LONG_PTR wanted = WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN;
    EXPECT_EQ(::GetWindowLongPtrW(m_window.Window(), GWL_STYLE) & wanted, wanted);
}

TEST_F(DebugWindowTest, CloseEntryIsGreyedUnlessTheWindowMayBeClosed)
{
    for (const bool closable : {false, true}) {
        m_window.Closable = closable;
        m_window.Create();
        const UINT state = ::GetMenuState(::GetSystemMenu(m_window.Window(), FALSE), SC_CLOSE, MF_BYCOMMAND);
        EXPECT_EQ((state & MF_GRAYED) != 0, !closable);
        m_window.Destroy();
    }
}

TEST_F(DebugWindowTest, WindowThatTheUserClosedTakesNoLinesAndCanComeBack)
{
    m_window.Create();
    ::SendMessageW(m_window.Window(), WM_SYSCOMMAND, SC_CLOSE, 0);
    EXPECT_FALSE(m_window.Exists());
    EXPECT_EQ(m_window.AddLine("line", false), -1);
    m_window.Create();
    EXPECT_EQ(m_window.AddLine("line", false), 0);
}

TEST_F(DebugWindowTest, MenuBarHasThreeEntries)
{
    m_window.Create();
    EXPECT_EQ(MenuBar(), (Texts{L"&BringWindowToView/153", L"&Clear/150", L"&Hold/151"}));
}

TEST_F(DebugWindowTest, HoldAndReleaseTakeEachOthersPlaceAtTheEnd)
{
    m_window.Create();
    Command(HoldCommand);
    EXPECT_EQ(MenuBar(), (Texts{L"&BringWindowToView/153", L"&Clear/150", L"&Release/152"}));
    Command(ReleaseCommand);
    EXPECT_EQ(MenuBar(), (Texts{L"&BringWindowToView/153", L"&Clear/150", L"&Hold/151"}));
}

TEST_F(DebugWindowTest, ClearEmptiesTheList)
{
    m_window.Create();
    AddLines(5);
    Command(ClearCommand);
    EXPECT_EQ(Count(), 0);
    AddLines(1);
    EXPECT_EQ(Count(), 1);
}

TEST_F(DebugWindowTest, BringWindowToViewRestoresAndMovesItAndTheNewPlaceIsSaved)
{
    Keep(L"XOrigin", 3000);
    m_window.Create();
    ::ShowWindow(m_window.Window(), SW_MINIMIZE);
    ASSERT_TRUE(::IsIconic(m_window.Window()));
    Command(BringCommand);
    EXPECT_FALSE(::IsIconic(m_window.Window()));
    EXPECT_EQ(Place(), (RECT{10, 10, 510, 510}));
    EXPECT_EQ(Kept(L"XOrigin"), 10u);
    EXPECT_EQ(Kept(L"Width"), 500u);
}

TEST_F(DebugWindowTest, DestroyedWindowTakesItsMenuAlongAndTakesNoLines)
{
    m_window.Create();
    const HWND window = m_window.Window();
    const HMENU bar = ::GetMenu(window);
    m_window.Destroy();
    EXPECT_FALSE(m_window.Exists());
    EXPECT_FALSE(::IsWindow(window));
    EXPECT_FALSE(::IsMenu(bar));
    EXPECT_EQ(m_window.AddLine("line", true), -1);
}

TEST_F(DebugWindowTest, WithoutAWindowEveryCallIsHarmless)
{
    m_window.ScrollTo(5);
    m_window.Clear();
    m_window.Destroy();
    EXPECT_EQ(m_window.AddLine("line", true), -1);
    EXPECT_FALSE(m_window.Exists());
}

TEST_F(DebugWindowTest, CreatingTwiceMakesOneWindow)
{
    m_window.Create();
    const HWND first = m_window.Window();
    m_window.Create();
    EXPECT_EQ(m_window.Window(), first);
}

TEST_F(DebugWindowTest, FocusGoesToTheListSoThatTheArrowKeysScroll)
{
    m_window.Create();
    ::SetFocus(m_window.Window());
    EXPECT_EQ(::GetFocus(), List());
}

} // namespace
