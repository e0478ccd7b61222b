// What the dialog shows, keeps to itself and hands over.
#include "tests/unit/diag/DialogFixture.h"

#include <set>

namespace {

constexpr std::array<std::pair<int, unsigned>, 12> BoxesAndBits{{{216, 16},
                                                                 {217, 0},
                                                                 {226, 17},
                                                                 {227, 1},
                                                                 {220, 18},
                                                                 {221, 2},
                                                                 {222, 19},
                                                                 {223, 3},
                                                                 {228, 20},
                                                                 {229, 4},
                                                                 {230, 21},
                                                                 {231, 5}}};

TEST_F(DialogTest, IsCreatedHiddenWithItsTrayIcon)
{
    EXPECT_FALSE(m_dialog.Exists());
    Create();
    EXPECT_TRUE(m_dialog.Exists());
    EXPECT_FALSE(m_dialog.IsVisible());
    EXPECT_FALSE(::IsWindowVisible(m_dialog.Window()));
    ASSERT_FALSE(NotifyCalls().empty());
    EXPECT_EQ(NotifyCalls().back().message, static_cast<DWORD>(NIM_ADD));
    EXPECT_EQ(NotifyCalls().back().data.hWnd, m_dialog.Window());
}

TEST_F(DialogTest, CreatingASecondTimeIsRefused)
{
    Create();
    EXPECT_FALSE(m_dialog.Create(::GetModuleHandleW(nullptr), m_host));
    EXPECT_TRUE(m_dialog.Exists());
}

TEST_F(DialogTest, ProgramWithoutTheResourceGivesNoWindow)
{
    EXPECT_FALSE(m_dialog.Create(::GetModuleHandleW(L"kernel32.dll"), m_host));
    EXPECT_FALSE(m_dialog.Exists());
}

TEST_F(DialogTest, DestroyingRemovesTheIcon)
{
    Create();
    ForgetShellCalls();
    m_dialog.Destroy();
    EXPECT_FALSE(m_dialog.Exists());
    EXPECT_FALSE(m_dialog.IsVisible());
    ASSERT_EQ(NotifyCalls().size(), 1u);
    EXPECT_EQ(NotifyCalls().back().message, static_cast<DWORD>(NIM_DELETE));
    m_dialog.Destroy();
    EXPECT_EQ(NotifyCalls().size(), 1u);
}

TEST_F(DialogTest, RepeatsAtItsNextTickAQuitThatAMenuHasTakenForItself)
{
    const auto quitIsPosted = [] {
        MSG message{};
        return ::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) != FALSE;
    };
    Create();
    ::SendMessageW(m_dialog.Window(), WM_TIMER, 1, 0);
    EXPECT_FALSE(quitIsPosted());
    m_host.quitWanted = true;
    ::SendMessageW(m_dialog.Window(), WM_TIMER, 1, 0);
    EXPECT_TRUE(quitIsPosted());
}

TEST_F(DialogTest, DestroyingItWhileItIsOpenLeavesNothingVisible)
{
    AddDevice(1, L"Pump");
    Show();
    m_dialog.Destroy();
    EXPECT_FALSE(m_dialog.IsVisible());
    EXPECT_TRUE(m_host.applied.empty());
}

TEST_F(DialogTest, VisibleExactlyWhileItIsOnScreenHoweverItGotThere)
{
    Create();
    ::ShowWindow(m_dialog.Window(), SW_SHOW);
    EXPECT_TRUE(m_dialog.IsVisible());
    ::ShowWindow(m_dialog.Window(), SW_HIDE);
    EXPECT_FALSE(m_dialog.IsVisible());
    ::SetWindowPos(m_dialog.Window(), nullptr, 0, 0, 0, 0, SWP_SHOWWINDOW | SWP_NOMOVE | SWP_NOSIZE);
    EXPECT_TRUE(m_dialog.IsVisible());
    ::SetWindowPos(m_dialog.Window(), nullptr, 0, 0, 0, 0, SWP_HIDEWINDOW | SWP_NOMOVE | SWP_NOSIZE);
    EXPECT_FALSE(m_dialog.IsVisible());
}

TEST_F(DialogTest, DoubleClickOnTheIconOpensItAndOtherMouseMessagesDoNot)
{
    Create();
    for (const LPARAM message : {WM_MOUSEMOVE, WM_LBUTTONDOWN, WM_LBUTTONUP, WM_RBUTTONDOWN}) {
        ::SendMessageW(m_dialog.Window(), WM_USER, 0, message);
        EXPECT_FALSE(m_dialog.IsVisible());
    }
    ::SendMessageW(m_dialog.Window(), WM_USER, 0, WM_LBUTTONDBLCLK);
    EXPECT_TRUE(m_dialog.IsVisible());
    EXPECT_TRUE(::IsWindowVisible(m_dialog.Window()));
}

/// What happens on this thread while a message is being handled: whether a menu was open. A menu gets the keys of
/// its first entry.
class MenuWatch
{
public:
    explicit MenuWatch(HWND window) : m_window(window)
    {
        s_seen = 0;
        ::SetTimer(m_window, Timer, 50, &Choose);
    }
    ~MenuWatch() { ::KillTimer(m_window, Timer); }
    MenuWatch(const MenuWatch&) = delete;
    MenuWatch& operator=(const MenuWatch&) = delete;

    static bool SawMenu() { return s_seen != 0; }

private:
    static constexpr UINT_PTR Timer = 7;

    static void CALLBACK Choose(HWND window, UINT, UINT_PTR timer, DWORD)
    {
        ::KillTimer(window, timer);
        GUITHREADINFO thread{};
        thread.cbSize = sizeof thread;
        if (::GetGUIThreadInfo(::GetCurrentThreadId(), &thread) && (thread.flags & GUI_INMENUMODE) != 0) {
            ++s_seen;
            ::PostMessageW(window, WM_KEYDOWN, VK_DOWN, 0);
            ::PostMessageW(window, WM_KEYDOWN, VK_RETURN, 0);
        }
    }

    static inline int s_seen = 0;
    const HWND m_window;
};

TEST_F(DialogTest, RightButtonOpensTheMenuWhoseEntryOnlyClosesIt)
{
    Create();
    const MenuWatch watch(m_dialog.Window());
    ::SendMessageW(m_dialog.Window(), WM_USER, 0, WM_RBUTTONUP);
    EXPECT_TRUE(MenuWatch::SawMenu());
    PumpMessages();
    EXPECT_FALSE(m_dialog.IsVisible());
}

TEST_F(DialogTest, ContextMenuMessageIsSwallowed)
{
    Show();
    RECT place;
    ::GetWindowRect(m_dialog.Window(), &place);
    const MenuWatch watch(m_dialog.Window());
    // On the caption, where a window by default opens its system menu.
    ::SendMessageW(m_dialog.Window(), WM_CONTEXTMENU, reinterpret_cast<WPARAM>(m_dialog.Window()),
                   MAKELPARAM((place.left + place.right) / 2, place.top + ::GetSystemMetrics(SM_CYCAPTION) / 2));
    EXPECT_FALSE(MenuWatch::SawMenu());
}

TEST_F(DialogTest, TellsItsDefaultButton)
{
    static_assert(DM_GETDEFID == TrayIcon::CallbackMessage);
    Create();
    EXPECT_EQ(::SendMessageW(m_dialog.Window(), DM_GETDEFID, 0, 0), MAKELRESULT(IDOK, DC_HASDEFID));
}

TEST_F(DialogTest, QueryOfTheSessionsEndIsAnsweredYes)
{
    Create();
    EXPECT_EQ(::SendMessageW(m_dialog.Window(), WM_QUERYENDSESSION, 0, 0), TRUE);
    EXPECT_EQ(m_host.sessionEnds, 0);
}

TEST_F(DialogTest, EndOfTheSessionIsReportedOnceAndMayDestroyTheDialog)
{
    Create();
    const HWND window = m_dialog.Window();
    m_host.onSessionEnd = [&] {
        ::SendMessageW(window, WM_ENDSESSION, TRUE, 0); // from the debug window
        m_dialog.Destroy();
    };
    ::SendMessageW(window, WM_ENDSESSION, TRUE, 0);
    EXPECT_EQ(m_host.sessionEnds, 1);
    EXPECT_FALSE(m_dialog.Exists());
}

TEST_F(DialogTest, SessionThatGoesOnIsNotReported)
{
    Create();
    ::SendMessageW(m_dialog.Window(), WM_ENDSESSION, FALSE, 0);
    EXPECT_EQ(m_host.sessionEnds, 0);
}

TEST_F(DialogTest, TimerRefreshesTheIcon)
{
    Create();
    m_host.connected = true;
    m_host.bytes = 7000;
    ForgetShellCalls();
    ASSERT_TRUE(PumpUntil([] { return !NotifyCalls().empty(); }));
    EXPECT_STREQ(NotifyCalls().back().data.szTip, L"Tarn Port Router\nStatus: Connected\nSpeed: 7 KB/s");
}

TEST_F(DialogTest, IconComesBackWhenTheTaskbarWasMadeAnew)
{
    Create();
    ForgetShellCalls();
    ::SendMessageW(m_dialog.Window(), ::RegisterWindowMessageW(L"TaskbarCreated"), 0, 0);
    ASSERT_EQ(NotifyCalls().size(), 1u);
    EXPECT_EQ(NotifyCalls().back().message, static_cast<DWORD>(NIM_ADD));
}

TEST_F(DialogTest, ListHasNamesAndNumbersSortedByText)
{
    AddDevice(-1, L"_FirmwareDebug");
    AddDevice(0, L"_FirmwareDownload");
    AddDevice(3, L"Stage");
    AddDevice(12, L"Pump");
    Show();
    const auto texts = DeviceList();
    EXPECT_EQ(texts.size(), 4u);
    EXPECT_EQ(
        std::set<std::wstring>(texts.begin(), texts.end()),
        (std::set<std::wstring>{L"_FirmwareDebug (-1)", L"_FirmwareDownload (0)", L"Stage (3)", L"Pump (12)"}));
    const auto place = [&](const wchar_t* text) { return std::find(texts.begin(), texts.end(), text); };
    EXPECT_LT(place(L"Pump (12)"), place(L"Stage (3)"));
}

TEST_F(DialogTest, FirstDeviceByNameIsSelectedAndShown)
{
    AddDevice(1, L"Zoom", 0x00040000);
    AddDevice(2, L"Arm", 0x00080008);
    AddDevice(3, L"Middle", 0x00000004);
    Show();
    EXPECT_EQ(::SendMessageW(Control(IDC_DEVICE), CB_GETCURSEL, 0, 0), 0);
    EXPECT_EQ(DeviceList()[0], L"Arm (2)");
    EXPECT_TRUE(IsChecked(222));
    EXPECT_TRUE(IsChecked(223));
    EXPECT_FALSE(IsChecked(220));
    EXPECT_FALSE(IsChecked(221));
}

TEST_F(DialogTest, ModuleSettingsAreShown)
{
    m_host.limit = 25;
    m_host.append = false;
    m_host.simulate = true;
    Show();
    EXPECT_EQ(Text(IDC_LOG_FILE_SIZE), L"25");
    EXPECT_FALSE(IsChecked(IDC_APPEND_TO_FILE));
    EXPECT_TRUE(IsChecked(IDC_ENABLE_SIMULATION));
}

TEST_F(DialogTest, LogButtonHasTheBareFileNameAfterThreeBlanks)
{
    Show();
    EXPECT_EQ(Text(IDC_LOG_FOLDER), L"Log File Name:   MorvanePortRouter.log");
}

TEST_F(DialogTest, LogButtonOpensTheFolder)
{
    Show();
    Click(IDC_LOG_FOLDER);
    ASSERT_EQ(ExecuteCalls().size(), 1u);
    EXPECT_EQ(ExecuteCalls()[0].verb, L"explore");
    EXPECT_EQ(ExecuteCalls()[0].file, L"C:\\Router\\Log\\");
    EXPECT_FALSE(ExecuteCalls()[0].hasParameters);
    EXPECT_EQ(ExecuteCalls()[0].show, SW_SHOWNORMAL);
}

TEST_F(DialogTest, EachBoxSetsAndClearsItsOwnBit)
{
    AddDevice(-1, L"_FirmwareDebug"); // here all twelve can be changed
    Show();
    for (const auto& [id, bit] : BoxesAndBits) {
        Click(id);
        EXPECT_TRUE(IsChecked(id));
    }
    for (const auto& [id, bit] : BoxesAndBits) {
        Click(id);
        Click(IDOK);
        EXPECT_EQ(m_host.applied.back().options.at(-1).GetMask(), 0x003F003Fu & ~(1u << bit)) << id;
        m_host.options.at(-1).SetMask(0x003F003F);
        Show();
    }
}

TEST_F(DialogTest, BoxesShowTheBitsOfTheRecord)
{
    for (const auto& [shown, bit] : BoxesAndBits) {
        m_host.options.clear();
        AddDevice(1, L"Pump", 1u << bit);
        Show();
        for (const auto& [id, other] : BoxesAndBits) {
            EXPECT_EQ(IsChecked(id), id == shown);
        }
        Click(IDCANCEL);
    }
}

TEST_F(DialogTest, BitsWithoutABoxAreKept)
{
    AddDevice(1, L"Pump", 0xFFC0FFC0);
    Show();
    Click(IDC_USB_LOG);
    Click(IDOK);
    EXPECT_EQ(m_host.applied.back().options.at(1).GetMask(), 0xFFC8FFC0u);
}

TEST_F(DialogTest, ReadAndWriteTracesCanBeChangedForDeviceMinusOneOnly)
{
    AddDevice(-1, L"B");
    AddDevice(0, L"A");
    Show();
    EXPECT_FALSE(IsEnabled(216));
    EXPECT_FALSE(IsEnabled(217));
    Select(1);
    EXPECT_TRUE(IsEnabled(216));
    EXPECT_TRUE(IsEnabled(217));
    Select(0);
    EXPECT_FALSE(IsEnabled(216));
    EXPECT_TRUE(IsEnabled(226));
}

TEST_F(DialogTest, EachDeviceKeepsItsOwnChangesUntilOk)
{
    AddDevice(1, L"A");
    AddDevice(2, L"B");
    Show();
    Click(IDC_USB_LOG);
    Enter(IDC_MAX_PACKET, L"50");
    Select(1);
    EXPECT_FALSE(IsChecked(IDC_USB_LOG));
    EXPECT_EQ(Text(IDC_MAX_PACKET), L"100");
    Click(IDC_PIPE_SHOW);
    Select(0);
    EXPECT_TRUE(IsChecked(IDC_USB_LOG));
    EXPECT_EQ(Text(IDC_MAX_PACKET), L"50");
    Click(IDOK);
    ASSERT_EQ(m_host.applied.size(), 1u);
    const DebugOptionsMap& options = m_host.applied[0].options;
    EXPECT_EQ(options.at(1).GetMask(), 0x00080000u);
    EXPECT_EQ(options.at(1).MaxPacketLength, 50u);
    EXPECT_EQ(options.at(2).GetMask(), 0x00000004u);
    EXPECT_EQ(options.at(2).MaxPacketLength, 100u);
    EXPECT_EQ(options.at(1).DeviceName, L"A");
}

TEST_F(DialogTest, LengthIsStoredWhenItsEditLosesTheFocus)
{
    AddDevice(1, L"A");
    AddDevice(2, L"B");
    Show();
    ::SetFocus(Control(IDC_MAX_PACKET));
    ::SetDlgItemTextW(m_dialog.Window(), IDC_MAX_PACKET, L"12");
    Select(1);
    Select(0);
    EXPECT_EQ(Text(IDC_MAX_PACKET), L"100") << "typed only, not left";
    ::SetDlgItemTextW(m_dialog.Window(), IDC_MAX_PACKET, L"12");
    ::SetFocus(Control(IDC_DEVICE));
    Select(1);
    Select(0);
    EXPECT_EQ(Text(IDC_MAX_PACKET), L"12");
}

TEST_F(DialogTest, HiddenLengthIsStoredTheSameWay)
{
    AddDevice(1, L"A");
    Show();
    ::SetDlgItemTextW(m_dialog.Window(), IDC_MAX_PARSED, L"34");
    ::SendMessageW(m_dialog.Window(), WM_COMMAND, MAKEWPARAM(IDC_MAX_PARSED, EN_KILLFOCUS),
                   reinterpret_cast<LPARAM>(Control(IDC_MAX_PARSED)));
    Click(IDOK);
    EXPECT_EQ(m_host.applied.back().options.at(1).MaxParsedPacketLength, 34u);
    EXPECT_EQ(m_host.applied.back().options.at(1).MaxPacketLength, 100u);
}

TEST_F(DialogTest, LengthsAreSignedNumbers)
{
    AddDevice(1, L"A");
    m_host.options.at(1).MaxPacketLength = 0xFFFFFFFF;
    m_host.options.at(1).MaxParsedPacketLength = 77;
    Show();
    EXPECT_EQ(Text(IDC_MAX_PACKET), L"-1");
    EXPECT_EQ(Text(IDC_MAX_PARSED), L"77");
    Enter(IDC_MAX_PACKET, L"-5");
    Click(IDOK);
    EXPECT_EQ(m_host.applied.back().options.at(1).MaxPacketLength, static_cast<std::uint32_t>(-5));
}

TEST_F(DialogTest, EmptyLengthIsZero)
{
    AddDevice(1, L"A");
    Show();
    Enter(IDC_MAX_PACKET, L"");
    Click(IDOK);
    EXPECT_EQ(m_host.applied.back().options.at(1).MaxPacketLength, 0u);
}

TEST_F(DialogTest, OkHandsOverTheSettingsOnceAndHides)
{
    AddDevice(1, L"A");
    Show();
    Enter(IDC_LOG_FILE_SIZE, L"3");
    Click(IDC_APPEND_TO_FILE);
    Click(IDC_ENABLE_SIMULATION);
    EXPECT_TRUE(m_host.applied.empty()) << "nothing before OK";
    Click(IDOK);
    ASSERT_EQ(m_host.applied.size(), 1u);
    EXPECT_EQ(m_host.applied[0].limit, 3u);
    EXPECT_FALSE(m_host.applied[0].append);
    EXPECT_TRUE(m_host.applied[0].simulate);
    EXPECT_FALSE(m_dialog.IsVisible());
    EXPECT_TRUE(m_dialog.Exists());
}

TEST_F(DialogTest, CancelHandsOverNothingAndForgetsTheCopy)
{
    AddDevice(1, L"A");
    Show();
    Click(IDC_USB_LOG);
    Enter(IDC_MAX_PACKET, L"5");
    Enter(IDC_LOG_FILE_SIZE, L"3");
    Click(IDCANCEL);
    EXPECT_FALSE(m_dialog.IsVisible());
    EXPECT_TRUE(m_host.applied.empty());
    Show();
    EXPECT_FALSE(IsChecked(IDC_USB_LOG));
    EXPECT_EQ(Text(IDC_MAX_PACKET), L"100");
    EXPECT_EQ(Text(IDC_LOG_FILE_SIZE), L"10");
}

TEST_F(DialogTest, ClosingTheWindowIsCancel)
{
    AddDevice(1, L"A");
    Show();
    Click(IDC_USB_LOG);
    ::SendMessageW(m_dialog.Window(), WM_CLOSE, 0, 0);
    EXPECT_TRUE(PumpUntil([&] { return !m_dialog.IsVisible(); }));
    EXPECT_TRUE(m_dialog.Exists());
    EXPECT_TRUE(m_host.applied.empty());
}

TEST_F(DialogTest, UncheckingEveryBoxGivesMaskZero)
{
    AddDevice(-1, L"_FirmwareDebug", 0x003F003F);
    Show();
    for (const auto& [id, bit] : BoxesAndBits) {
        Click(id);
    }
    Click(IDOK);
    EXPECT_EQ(m_host.applied.back().options.at(-1).GetMask(), 0u);
}

TEST_F(DialogTest, ResetAllPutsEveryRecordAndTheSettingsBackButKeepsNames)
{
    AddDevice(1, L"A", 0x00010001);
    AddDevice(2, L"B", 0xFFFFFFFF);
    m_host.options.at(2).MaxPacketLength = 7;
    m_host.options.at(2).MaxParsedPacketLength = 8;
    m_host.options.at(2).EnableSimulation = 1;
    m_host.limit = 99;
    m_host.append = false;
    m_host.simulate = true;
    Show();
    Select(1);
    Click(IDC_RESET_ALL);
    EXPECT_FALSE(IsChecked(IDC_USB_LOG));
    EXPECT_EQ(Text(IDC_MAX_PACKET), L"100");
    EXPECT_EQ(Text(IDC_LOG_FILE_SIZE), L"10");
    EXPECT_TRUE(IsChecked(IDC_APPEND_TO_FILE));
    EXPECT_FALSE(IsChecked(IDC_ENABLE_SIMULATION));
    EXPECT_TRUE(m_host.applied.empty()) << "nothing before OK";
    Click(IDOK);
    ASSERT_EQ(m_host.applied.size(), 1u);
    EXPECT_EQ(m_host.applied[0].limit, 10u);
    for (const auto& [number, option] : m_host.applied[0].options) {
        EXPECT_EQ(option.GetMask(), 0u);
        EXPECT_EQ(option.MaxPacketLength, 100u);
        EXPECT_EQ(option.MaxParsedPacketLength, 100u);
        EXPECT_EQ(option.EnableSimulation, 0u);
        EXPECT_EQ(option.DeviceNumber, number);
    }
    EXPECT_EQ(m_host.applied[0].options.at(2).DeviceName, L"B");
}

TEST_F(DialogTest, ResetAllThenCancelChangesNothing)
{
    AddDevice(1, L"A", 0x00080008);
    m_host.limit = 99;
    Show();
    Click(IDC_RESET_ALL);
    Click(IDCANCEL);
    EXPECT_TRUE(m_host.applied.empty());
    Show();
    EXPECT_TRUE(IsChecked(IDC_USB_LOG));
    EXPECT_EQ(Text(IDC_LOG_FILE_SIZE), L"99");
}

TEST_F(DialogTest, WithoutDevicesTheListIsEmptyAndBoxesActOnNothing)
{
    Show();
    EXPECT_TRUE(DeviceList().empty());
    Click(IDC_USB_LOG);
    Enter(IDC_MAX_PACKET, L"5");
    Click(IDC_RESET_ALL);
    Click(IDOK);
    ASSERT_EQ(m_host.applied.size(), 1u);
    EXPECT_TRUE(m_host.applied[0].options.empty());
    EXPECT_EQ(m_host.applied[0].limit, 10u);
}

TEST_F(DialogTest, RecordsAreTakenAnewAtEachShowing)
{
    AddDevice(1, L"A");
    Show();
    AddDevice(2, L"B");
    EXPECT_EQ(DeviceList().size(), 1u);
    Click(IDCANCEL);
    Show();
    EXPECT_EQ(DeviceList().size(), 2u);
}

TEST_F(DialogTest, SecondDoubleClickWhileItIsOpenLosesNoChanges)
{
    AddDevice(1, L"A");
    Show();
    Click(IDC_USB_LOG);
    Show();
    EXPECT_TRUE(IsChecked(IDC_USB_LOG));
    Click(IDOK);
    EXPECT_EQ(m_host.applied.back().options.at(1).GetMask(), 0x00080000u);
}

TEST_F(DialogTest, TwoRecordsOfTheSameNameAreToldApartByTheirNumbers)
{
    AddDevice(1, L"Pump");
    AddDevice(2, L"Pump");
    Show();
    EXPECT_EQ(DeviceList(), (std::vector<std::wstring>{L"Pump (1)", L"Pump (2)"}));
    Select(1);
    Click(IDC_USB_LOG);
    Click(IDOK);
    EXPECT_EQ(m_host.applied.back().options.at(1).GetMask(), 0u);
    EXPECT_EQ(m_host.applied.back().options.at(2).GetMask(), 0x00080000u);
}

} // namespace
