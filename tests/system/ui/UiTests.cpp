// Tray icon, dialog and debug window as a person uses them: the built router on a desktop, a real pointer, real keys.
#include "diag/Resource.h"
#include "tests/support/PipeClient.h"
#include "tests/support/TestSupport.h"
#include "tests/system/RouterSession.h"
#include "tests/system/SimulatorProcess.h"
#include "tests/system/ui/Desktop.h"
#include "win32/RegistryKey.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <optional>

namespace {

constexpr wchar_t Options[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\DeviceOptions";
constexpr wchar_t DialogTitle[] = L"Morvane Port Router - Debug Options";
constexpr DWORD PacketsToFile = 0x00020000;

win32::RegistryKey DeviceKey(int device)
{
    const std::wstring name = std::wstring(Options) + L"\\" + std::to_wstring(device);
    return win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, name.c_str(), KEY_READ | KEY_WRITE);
}

class Ui : public testing::Test
{
protected:
    Ui()
    {
        DeviceKey(3).WriteString(L"DeviceName", L"Sample pump");
        RouterSession::SetMask(3, PacketsToFile);
    }

    void SetUp() override
    {
        ASSERT_TRUE(support::WaitUntil(desktop::HasTaskbar)) << "these tests need a desktop with a taskbar";
        simulator.emplace(L"--echo");
        ASSERT_TRUE(simulator->WaitUntilServed());
        ASSERT_TRUE(session.Activate());
        const std::string name = support::UniqueName("Ui");
        ASSERT_EQ(session.RegisterPort(3, 1, {name.begin(), name.end()}), S_OK);
        ASSERT_TRUE(support::WaitUntil([&] {
            return client.Open(name) && client.Write("hello") && client.Read(std::chrono::seconds(3)) == "hello";
        }));
    }

    /// A request and its echo: two lines in the class of packet parsing.
    void Exchange(const std::string& text)
    {
        ASSERT_TRUE(client.Write(text));
        ASSERT_EQ(client.Read(), text);
    }

    /// How a text's lines stand in the log: a character, a blank, a character ...
    static std::string AsDumped(const std::string& text)
    {
        std::string dump;
        for (const char character : text) {
            dump += character;
            dump += ' ';
        }
        return dump;
    }
    bool LogHas(const std::string& text) const { return session.Log().find(AsDumped(text)) != std::string::npos; }
    bool WaitForLogged(const std::string& text) const { return session.WaitForLog(AsDumped(text)); }

    static HWND Dialog() { return desktop::VisibleWindow(nullptr, DialogTitle); }
    static HWND Control(int id) { return ::GetDlgItem(Dialog(), id); }
    static bool IsChecked(int id) { return ::SendMessageW(Control(id), BM_GETCHECK, 0, 0) == BST_CHECKED; }
    static std::optional<std::uint32_t> SavedMask() { return DeviceKey(3).ReadDword(L"DebugMask"); }

    static void OpenDialog()
    {
        desktop::DoubleClick(desktop::CenterOf(desktop::TrayIcon()));
        ASSERT_TRUE(support::WaitUntil([] { return Dialog() != nullptr; }));
    }
    /// Opened with the channels of the firmware first in the list; the pump is looked up by its first letter.
    static void OpenDialogOfPump()
    {
        OpenDialog();
        desktop::Press("s");
        ASSERT_TRUE(support::WaitUntil([] {
            wchar_t text[100] = L"";
            ::SendMessageW(Control(IDC_DEVICE), WM_GETTEXT, 100, reinterpret_cast<LPARAM>(text));
            return std::wstring(text) == L"Sample pump (3)";
        }));
    }
    static void ClickControl(int id) { desktop::Click(desktop::CenterOf(Control(id))); }
    static void Toggle(int id)
    {
        const bool before = IsChecked(id);
        ClickControl(id);
        ASSERT_TRUE(support::WaitUntil([&] { return IsChecked(id) != before; }));
    }
    static void Leave(int button)
    {
        ClickControl(button);
        ASSERT_TRUE(support::WaitUntil([] { return Dialog() == nullptr; }));
    }

    static RECT Around(HWND window)
    {
        RECT area{};
        ::GetWindowRect(window, &area);
        return area;
    }

    RouterSession session{RouterSession::Transport::Simulation};
    std::optional<SimulatorProcess> simulator;
    support::PipeClient client;
};

TEST_F(Ui, HoveringOverTheIconShowsTheStateAndTheSpeed)
{
    desktop::PointAt(desktop::CenterOf(desktop::TrayIcon()));
    int requests = 0;
    ASSERT_TRUE(support::WaitUntil([&] {
        // Traffic all the while, so that there is a speed to show.
        Exchange("request " + std::to_string(++requests) + std::string(2000, '.'));
        const std::wstring tip = desktop::Tooltip();
        return tip.find(L"Tarn Port Router\nStatus: Connected\nSpeed: ") == 0 &&
               tip.find(L"Speed: 0 KB/s") == std::wstring::npos;
    }));
    const RECT icon = desktop::TrayIcon();
    const RECT tip = Around(desktop::VisibleWindow(TOOLTIPS_CLASSW));
    EXPECT_TRUE(desktop::TakePicture("tray", {tip.left - 160, tip.top - 20, icon.right, icon.bottom}));
}

TEST_F(Ui, DoubleClickOpensTheDialogAndCancelChangesNothing)
{
    OpenDialogOfPump();
    Toggle(IDC_PARSING_LOG);
    Toggle(IDC_PIPE_LOG);
    Leave(IDCANCEL);
    EXPECT_EQ(SavedMask(), PacketsToFile);
    Exchange("afterwards");
    EXPECT_TRUE(WaitForLogged("afterwards")) << "packets are still traced";
}

TEST_F(Ui, ChangedMaskAndOkCountFromTheNextLineOnAndStandInTheRegistry)
{
    Exchange("before");
    ASSERT_TRUE(WaitForLogged("before"));
    OpenDialogOfPump();
    Toggle(IDC_PARSING_LOG);
    Toggle(IDC_PIPE_LOG);
    EXPECT_TRUE(desktop::TakePicture("dialog", Around(Dialog())));
    Leave(IDOK);
    EXPECT_EQ(SavedMask(), 0x00040000u);
    Exchange("unwanted");

    OpenDialogOfPump();
    Toggle(IDC_PARSING_LOG);
    Leave(IDOK);
    EXPECT_EQ(SavedMask(), 0x00060000u);
    Exchange("wanted");
    ASSERT_TRUE(WaitForLogged("wanted"));
    EXPECT_EQ(session.Log().find(AsDumped("unwanted")), std::string::npos);
}

TEST_F(Ui, NothingIsTracedWhileTheDialogIsOpen)
{
    OpenDialog();
    Exchange("while open");
    Leave(IDCANCEL);
    Exchange("while closed");
    ASSERT_TRUE(WaitForLogged("closed"));
    EXPECT_FALSE(LogHas("open"));
}

TEST_F(Ui, DialogWorksByKeyboardAlone)
{
    OpenDialogOfPump();
    // From the list past the length to the first box that can be changed: packet parsing, log.
    desktop::Press("Tab Tab space Return");
    ASSERT_TRUE(support::WaitUntil([] { return Dialog() == nullptr; }));
    EXPECT_EQ(SavedMask(), 0u);
    OpenDialogOfPump();
    desktop::Press("Tab Tab space Escape");
    ASSERT_TRUE(support::WaitUntil([] { return Dialog() == nullptr; }));
    EXPECT_EQ(SavedMask(), 0u);
}

TEST_F(Ui, MenuOfTheIconHasAnEntryThatOnlyClosesIt)
{
    const auto menu = [] { return desktop::VisibleWindow(L"#32768"); };
    desktop::RightClick(desktop::CenterOf(desktop::TrayIcon()));
    ASSERT_TRUE(support::WaitUntil([&] { return menu() != nullptr; }));
    desktop::Click(desktop::CenterOf(menu()));
    ASSERT_TRUE(support::WaitUntil([&] { return menu() == nullptr; }));
    EXPECT_EQ(Dialog(), nullptr);
    Exchange("the router lives");
}

TEST_F(Ui, DisplayBoxBringsTheDebugWindowAndTakesItAway)
{
    const auto window = [] { return desktop::VisibleWindow(L"MorvaneDebugWindow"); };
    const auto lines = [&] { return ::SendMessageW(::GetDlgItem(window(), 100), LB_GETCOUNT, 0, 0); };
    OpenDialogOfPump();
    Toggle(IDC_PARSING_SHOW);
    Leave(IDOK);
    ASSERT_TRUE(support::WaitUntil([&] { return window() != nullptr; }));
    for (int request = 0; request < 60; ++request) {
        Exchange("request " + std::to_string(request));
    }
    ASSERT_TRUE(support::WaitUntil([&] { return lines() >= 120; }));
    ::UpdateWindow(window());
    EXPECT_TRUE(desktop::TakePicture("debug-window", Around(window())));

    OpenDialogOfPump();
    Toggle(IDC_PARSING_SHOW);
    Leave(IDOK);
    EXPECT_TRUE(support::WaitUntil([&] { return window() == nullptr; }));
}

} // namespace
