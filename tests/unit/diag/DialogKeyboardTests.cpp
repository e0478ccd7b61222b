// The dialog by keyboard alone.
#include "tests/unit/diag/DialogFixture.h"

namespace {

TEST_F(DialogTest, TabGoesThroughTheControlsAsTheEyeDoes)
{
    AddDevice(-1, L"_FirmwareDebug");
    Show();
    ::SetFocus(Control(IDC_DEVICE));
    std::vector<int> visited;
    do {
        visited.push_back(FocusedId());
        Press(VK_TAB);
    } while (FocusedId() != IDC_DEVICE && visited.size() < 40);
    EXPECT_EQ(visited, (std::vector<int>{215, 216, 217, 210, 226, 227, 220, 221, 222, 223, 228,
                                         229, 230, 231, 225, 208, 204, 224, 202, 1,   2}));
}

TEST_F(DialogTest, TabPassesOverBoxesThatCannotBeChanged)
{
    AddDevice(1, L"Pump");
    Show();
    ::SetFocus(Control(IDC_DEVICE));
    Press(VK_TAB);
    EXPECT_EQ(FocusedId(), IDC_MAX_PACKET);
}

TEST_F(DialogTest, FocusIsOnTheDeviceListWhenItOpens)
{
    AddDevice(1, L"Pump");
    Show();
    EXPECT_EQ(FocusedId(), IDC_DEVICE);
}

TEST_F(DialogTest, FocusIsOnTheDeviceListAgainWhenItIsOpenedAnew)
{
    AddDevice(1, L"Pump");
    Show();
    ::SetFocus(Control(IDC_USB_LOG));
    Press(VK_RETURN);
    ASSERT_FALSE(m_dialog.IsVisible());
    Show();
    EXPECT_EQ(FocusedId(), IDC_DEVICE);
}

TEST_F(DialogTest, SecondDoubleClickWhileItIsOpenLeavesTheFocusWhereItIs)
{
    AddDevice(1, L"Pump");
    Show();
    ::SetFocus(Control(IDC_USB_LOG));
    Show();
    EXPECT_EQ(FocusedId(), IDC_USB_LOG);
}

TEST_F(DialogTest, ArrowKeysInTheListChangeTheDevice)
{
    AddDevice(1, L"A", 0x00080000);
    AddDevice(2, L"B");
    Show();
    ::SetFocus(Control(IDC_DEVICE));
    EXPECT_TRUE(IsChecked(IDC_USB_LOG));
    Press(VK_DOWN);
    EXPECT_FALSE(IsChecked(IDC_USB_LOG));
}

TEST_F(DialogTest, SpaceTogglesABox)
{
    AddDevice(1, L"A");
    Show();
    ::SetFocus(Control(IDC_USB_LOG));
    Press(VK_SPACE);
    EXPECT_TRUE(IsChecked(IDC_USB_LOG));
    Press(VK_RETURN);
    ASSERT_EQ(m_host.applied.size(), 1u);
    EXPECT_EQ(m_host.applied[0].options.at(1).GetMask(), 0x00080000u);
}

TEST_F(DialogTest, EnterIsOkAlsoForALengthThatIsStillBeingTyped)
{
    AddDevice(1, L"A");
    Show();
    ::SetFocus(Control(IDC_MAX_PACKET));
    ::SetDlgItemTextW(m_dialog.Window(), IDC_MAX_PACKET, L"12");
    Press(VK_RETURN);
    EXPECT_FALSE(m_dialog.IsVisible());
    ASSERT_EQ(m_host.applied.size(), 1u);
    EXPECT_EQ(m_host.applied[0].options.at(1).MaxPacketLength, 12u);
}

TEST_F(DialogTest, EscapeIsCancel)
{
    AddDevice(1, L"A");
    Show();
    ::SetFocus(Control(IDC_MAX_PACKET));
    ::SetDlgItemTextW(m_dialog.Window(), IDC_MAX_PACKET, L"12");
    Press(VK_ESCAPE);
    EXPECT_FALSE(m_dialog.IsVisible());
    EXPECT_TRUE(m_host.applied.empty());
}

TEST_F(DialogTest, HiddenDialogTakesNoMessages)
{
    Create();
    MSG message{};
    message.hwnd = m_dialog.Window();
    message.message = WM_KEYDOWN;
    message.wParam = VK_RETURN;
    EXPECT_FALSE(m_dialog.TranslateDialogMessage(message));
    EXPECT_TRUE(m_host.applied.empty());
}

TEST_F(DialogTest, MessageOfAnotherWindowIsNotTaken)
{
    Show();
    const HWND other =
        ::CreateWindowExW(0, L"STATIC", nullptr, WS_OVERLAPPED, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
    MSG message{};
    message.hwnd = other;
    message.message = WM_KEYDOWN;
    message.wParam = VK_ESCAPE;
    EXPECT_FALSE(m_dialog.TranslateDialogMessage(message));
    EXPECT_TRUE(m_dialog.IsVisible());
    ::DestroyWindow(other);
}

} // namespace
