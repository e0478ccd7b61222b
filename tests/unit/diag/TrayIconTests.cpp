#include "diag/TrayIcon.h"

#include "diag/Resource.h"
#include "tests/unit/diag/FakeHost.h"
#include "tests/unit/diag/Pump.h"

#include <gtest/gtest.h>

namespace {

class TrayIconTest : public testing::Test
{
protected:
    TrayIconTest()
        : m_window(::CreateWindowExW(0, L"STATIC", nullptr, WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, nullptr, nullptr,
                                     ::GetModuleHandleW(nullptr), nullptr))
    {
        ForgetShellCalls();
    }
    ~TrayIconTest() override { ::DestroyWindow(m_window); }

    void SetUpTray() { m_tray.SetUp(m_window, ::GetModuleHandleW(nullptr), m_host); }

    /// One second passes: the icon that was set in it (0 for none).
    UINT Tick(std::uint32_t moreBytes = 0)
    {
        ForgetShellCalls();
        m_host.bytes += moreBytes;
        m_tray.Refresh();
        // The tooltip always changes last; an icon that was set before it makes one call more.
        return NotifyCalls().size() < 2 ? 0 : IconId(NotifyCalls().front().data.hIcon);
    }

    static std::wstring Tooltip() { return NotifyCalls().back().data.szTip; }

    static int CountCalls(DWORD message)
    {
        int count = 0;
        for (const ShellCall& call : NotifyCalls()) {
            count += call.message == message ? 1 : 0;
        }
        return count;
    }

    bool TimerRuns() const
    {
        return support::WaitUntil([&] {
            MSG message{};
            return ::PeekMessageW(&message, m_window, WM_TIMER, WM_TIMER, PM_REMOVE) && message.wParam == 1;
        });
    }

    HWND m_window;
    FakeHost m_host;
    TrayIcon m_tray{RecordingShell()};
};

TEST_F(TrayIconTest, IsAddedDisconnectedAtSpeedZero)
{
    SetUpTray();
    ASSERT_EQ(CountCalls(NIM_ADD), 1);
    const NOTIFYICONDATAW& data = NotifyCalls().back().data;
    EXPECT_EQ(NotifyCalls().back().message, static_cast<DWORD>(NIM_ADD));
    EXPECT_EQ(data.cbSize, sizeof data);
    EXPECT_EQ(data.hWnd, m_window);
    EXPECT_EQ(data.uID, 0u);
    EXPECT_EQ(data.uFlags, static_cast<UINT>(NIF_MESSAGE | NIF_ICON | NIF_TIP));
    EXPECT_EQ(data.uCallbackMessage, 0x400u);
    EXPECT_EQ(IconId(data.hIcon), 204u);
    EXPECT_EQ(Tooltip(), L"Tarn Port Router\nStatus: Disconnected\nSpeed: 0 KB/s");
}

TEST_F(TrayIconTest, IsNotAddedWhileTheDialogIsVisible)
{
    ::ShowWindow(m_window, SW_SHOW);
    SetUpTray();
    EXPECT_EQ(CountCalls(NIM_ADD), 0);
}

TEST_F(TrayIconTest, TimerOneRunsFromTheStartAndIsReplacedNotDoubled)
{
    SetUpTray();
    EXPECT_TRUE(TimerRuns());
    m_tray.SetTimerState(true, 10);
    EXPECT_TRUE(TimerRuns());
    m_tray.SetTimerState(false, 10);
    MSG message;
    while (::PeekMessageW(&message, m_window, WM_TIMER, WM_TIMER, PM_REMOVE)) {
    }
    EXPECT_FALSE(::KillTimer(m_window, 1)) << "there is none any more";
}

TEST_F(TrayIconTest, TicksOnceASecond)
{
    // A busy machine may see a tick late, but never early.
    const auto inTime = [&] {
        SetUpTray();
        const ULONGLONG begin = ::GetTickCount64();
        EXPECT_TRUE(TimerRuns());
        const ULONGLONG passed = ::GetTickCount64() - begin;
        EXPECT_GE(passed, 950u);
        return passed < 1500;
    };
    EXPECT_TRUE(support::WaitUntil(inTime));
}

TEST_F(TrayIconTest, ChangesAreSentAsModificationsWithEverything)
{
    SetUpTray();
    ForgetShellCalls();
    m_tray.SetTooltip(L"tip");
    m_tray.SetIcon(IDI_CONNECTED_2);
    ASSERT_EQ(NotifyCalls().size(), 2u);
    for (const ShellCall& call : NotifyCalls()) {
        EXPECT_EQ(call.message, static_cast<DWORD>(NIM_MODIFY));
        EXPECT_STREQ(call.data.szTip, L"tip");
        EXPECT_EQ(call.data.uFlags, static_cast<UINT>(NIF_MESSAGE | NIF_ICON | NIF_TIP));
    }
    EXPECT_EQ(IconId(NotifyCalls()[0].data.hIcon), 204u);
    EXPECT_EQ(IconId(NotifyCalls()[1].data.hIcon), 207u);
}

TEST_F(TrayIconTest, TooltipIsCutTo64CharactersWithItsTerminator)
{
    SetUpTray();
    m_tray.SetTooltip(std::wstring(63, L'a'));
    EXPECT_EQ(Tooltip(), std::wstring(63, L'a'));
    m_tray.SetTooltip(std::wstring(64, L'b'));
    EXPECT_EQ(Tooltip(), std::wstring(63, L'b'));
}

TEST_F(TrayIconTest, ConnectedWithoutTrafficMovesForTenTicksAndKeepsTheLastFrame)
{
    SetUpTray();
    m_host.connected = true;
    for (const UINT icon : {203u, 207u, 209u, 203u, 207u, 209u, 203u, 207u, 209u, 203u}) {
        EXPECT_EQ(Tick(), icon);
    }
    EXPECT_EQ(Tick(), 0u);
    EXPECT_EQ(Tick(), 0u);
    EXPECT_EQ(IconId(NotifyCalls().back().data.hIcon), 203u);
}

TEST_F(TrayIconTest, AfterTenTicksItMovesOnlyWhileDataDoes)
{
    SetUpTray();
    m_host.connected = true;
    for (int i = 0; i < 10; ++i) {
        Tick();
    }
    EXPECT_EQ(Tick(1), 207u);
    EXPECT_EQ(Tick(), 0u);
    EXPECT_EQ(Tick(5000), 209u);
    EXPECT_EQ(Tick(static_cast<std::uint32_t>(-5)), 0u) << "a counter that ran backwards is no traffic";
}

TEST_F(TrayIconTest, DisconnectionShowsItsIconAndTheNextConnectionMovesAfresh)
{
    SetUpTray();
    m_host.connected = true;
    for (int i = 0; i < 12; ++i) {
        Tick();
    }
    m_host.connected = false;
    EXPECT_EQ(Tick(100), 204u);
    EXPECT_EQ(Tick(), 204u);
    m_host.connected = true;
    EXPECT_EQ(Tick(), 203u);
    for (int i = 0; i < 9; ++i) {
        EXPECT_NE(Tick(), 0u);
    }
    EXPECT_EQ(Tick(), 0u);
}

TEST_F(TrayIconTest, TwoAndAHalfMillionBytesInASecondAreSpeed2500)
{
    SetUpTray();
    m_host.connected = true;
    Tick(2'500'000);
    EXPECT_EQ(Tooltip(), L"Tarn Port Router\nStatus: Connected\nSpeed: 2500 KB/s");
}

TEST_F(TrayIconTest, SpeedIsTruncatedAndOnlyOfTheLastSecond)
{
    SetUpTray();
    m_host.connected = true;
    Tick(1999);
    EXPECT_EQ(Tooltip(), L"Tarn Port Router\nStatus: Connected\nSpeed: 1 KB/s");
    Tick(999);
    EXPECT_EQ(Tooltip(), L"Tarn Port Router\nStatus: Connected\nSpeed: 0 KB/s");
}

TEST_F(TrayIconTest, CounterMayWrapAround)
{
    SetUpTray();
    m_host.connected = true;
    Tick(0xFFFFFFFF);
    Tick(5001);
    EXPECT_EQ(m_host.bytes, 5000u);
    EXPECT_EQ(Tooltip(), L"Tarn Port Router\nStatus: Connected\nSpeed: 5 KB/s");
}

TEST_F(TrayIconTest, UpdatingFirmwareIsToldWhileConnectedOnly)
{
    SetUpTray();
    m_host.updating = true;
    Tick();
    EXPECT_EQ(Tooltip(), L"Tarn Port Router\nStatus: Disconnected\nSpeed: 0 KB/s");
    m_host.connected = true;
    Tick();
    EXPECT_EQ(Tooltip(), L"Tarn Port Router\nStatus: Updating Firmware ...\nSpeed: 0 KB/s");
}

TEST_F(TrayIconTest, DisablingEndsTheTimerAndRemovesTheIcon)
{
    SetUpTray();
    ForgetShellCalls();
    m_tray.EnableTray(false);
    EXPECT_EQ(CountCalls(NIM_DELETE), 1);
    EXPECT_FALSE(::KillTimer(m_window, 1));
}

TEST_F(TrayIconTest, ComesBackWithANewTaskbarUnlessItWasRemoved)
{
    SetUpTray();
    ForgetShellCalls();
    m_tray.Restore();
    EXPECT_EQ(CountCalls(NIM_ADD), 1);
    m_tray.RemoveTrayIcon();
    ForgetShellCalls();
    m_tray.Restore();
    EXPECT_EQ(CountCalls(NIM_ADD), 0);
}

TEST_F(TrayIconTest, AddThatWasRefusedIsRepeatedWithTheNextTick)
{
    RefuseShellCalls(true);
    SetUpTray();
    ForgetShellCalls();
    Tick();
    EXPECT_EQ(CountCalls(NIM_ADD), 1);
    Tick();
    EXPECT_EQ(CountCalls(NIM_ADD), 0) << "it is there now";
}

TEST_F(TrayIconTest, AddThatWasRefusedIsRepeatedWithANewTaskbar)
{
    RefuseShellCalls(true);
    SetUpTray();
    ForgetShellCalls();
    m_tray.Restore();
    EXPECT_EQ(CountCalls(NIM_ADD), 1);
    Tick();
    EXPECT_EQ(CountCalls(NIM_ADD), 0);
}

TEST_F(TrayIconTest, IconThatTheShellHasLostIsAddedAgain)
{
    SetUpTray();
    RefuseShellCalls(true);
    m_tray.SetIcon(IDI_CONNECTED_2);
    Tick();
    EXPECT_EQ(CountCalls(NIM_ADD), 1);
    EXPECT_EQ(IconId(NotifyCalls().front().data.hIcon), 207u);
}

TEST_F(TrayIconTest, IconThatCanBeChangedIsNotAddedAgain)
{
    RefuseShellCalls(true);
    SetUpTray(); // a shell that answered too late
    ForgetShellCalls();
    m_tray.SetIcon(IDI_CONNECTED_2);
    Tick();
    EXPECT_EQ(CountCalls(NIM_ADD), 0);
}

TEST_F(TrayIconTest, MissingIconIsNotAddedWhileDisabled)
{
    RefuseShellCalls(true);
    SetUpTray();
    m_tray.EnableTray(false);
    ForgetShellCalls();
    Tick();
    EXPECT_EQ(CountCalls(NIM_ADD), 0);
}

TEST_F(TrayIconTest, MenuThatIsNotThereGivesNothingAndShowsNothing)
{
    SetUpTray();
    EXPECT_EQ(m_tray.ShowPopupMenu(9999), 0u);
}

/// Presses a key in the menu that is open on this thread.
template <WORD Key>
void CALLBACK PressInMenu(HWND window, UINT, UINT_PTR timer, DWORD)
{
    ::KillTimer(window, timer);
    if (Key == VK_RETURN) {
        ::PostMessageW(window, WM_KEYDOWN, VK_DOWN, 0);
    }
    ::PostMessageW(window, WM_KEYDOWN, Key, 0);
}

TEST_F(TrayIconTest, PopupMenuGivesTheChosenEntry)
{
    SetUpTray();
    ::SetTimer(m_window, 7, 50, &PressInMenu<VK_RETURN>);
    EXPECT_EQ(m_tray.ShowPopupMenu(IDR_TRAY_MENU), 32770u);
}

TEST_F(TrayIconTest, PopupMenuThatIsLeftGivesNothing)
{
    SetUpTray();
    ::SetTimer(m_window, 7, 50, &PressInMenu<VK_ESCAPE>);
    EXPECT_EQ(m_tray.ShowPopupMenu(IDR_TRAY_MENU), 0u);
}

TEST(TrayMenu, HasOnePopupWithOneEntry)
{
    const HMENU menu = ::LoadMenuW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(206));
    ASSERT_NE(menu, nullptr);
    wchar_t text[50] = L"";
    EXPECT_EQ(::GetMenuItemCount(menu), 1);
    ::GetMenuStringW(menu, 0, text, 50, MF_BYPOSITION);
    EXPECT_STREQ(text, L"PopUp");
    const HMENU popup = ::GetSubMenu(menu, 0);
    EXPECT_EQ(::GetMenuItemCount(popup), 1);
    ::GetMenuStringW(popup, 0, text, 50, MF_BYPOSITION);
    EXPECT_STREQ(text, L"Options ...");
    EXPECT_EQ(::GetMenuItemID(popup, 0), 32770u);
    ::DestroyMenu(menu);
}

} // namespace
