// The dialog's resource, control by control.
#include "tests/unit/diag/DialogFixture.h"

namespace {

struct Item
{
    int id; // -1: a label or a frame, not asked for by its id
    const wchar_t* windowClass;
    const wchar_t* text;
    RECT box; // x, y, width, height in dialog units
    LONG_PTR style = 0;
    bool visible = true;
};

constexpr LONG_PTR Tab = WS_TABSTOP;
constexpr LONG_PTR Check = BS_AUTOCHECKBOX | Tab;
constexpr LONG_PTR Number = ES_NUMBER | Tab;

/// In tab order, which is the order in which the eye reads.
const std::vector<Item> Items{
    {215, L"ComboBox", L"", {9, 8, 119, 133}, CBS_DROPDOWNLIST | CBS_SORT | Tab},
    {-1, L"Button", L"", {7, 18, 289, 95}, BS_GROUPBOX},
    {-1, L"Static", L"Read/Write Traces (All Devices):", {12, 30, 110, 8}},
    {216, L"Button", L"Log", {125, 29, 24, 10}, Check},
    {217, L"Button", L"Display", {161, 29, 35, 10}, Check},
    {-1, L"Static", L"Up To (Bytes):", {206, 30, 47, 8}},
    {210, L"Edit", L"", {255, 28, 33, 12}, Number},
    {-1, L"Static", L"Packet Parsing Traces:", {12, 43, 110, 8}},
    {226, L"Button", L"Log", {125, 42, 24, 10}, Check},
    {227, L"Button", L"Display", {161, 42, 35, 10}, Check},
    {-1, L"Static", L"Up To (Bytes):", {206, 43, 46, 8}, 0, false},
    {211, L"Edit", L"", {255, 41, 33, 12}, ES_NUMBER | ES_READONLY, false},
    {-1, L"Static", L"Device Pipe Function Traces:", {12, 56, 110, 8}},
    {220, L"Button", L"Log", {125, 55, 24, 10}, Check},
    {221, L"Button", L"Display", {161, 55, 35, 10}, Check},
    {-1, L"Static", L"USB Function Traces:", {12, 69, 110, 8}},
    {222, L"Button", L"Log", {125, 68, 24, 10}, Check},
    {223, L"Button", L"Display", {161, 68, 35, 10}, Check},
    {-1, L"Static", L"Dispatch Function Traces:", {13, 82, 110, 8}},
    {228, L"Button", L"Log", {125, 81, 24, 10}, Check},
    {229, L"Button", L"Display", {161, 81, 35, 10}, Check},
    {-1, L"Static", L"General Function Traces:", {12, 95, 110, 8}},
    {230, L"Button", L"Log", {125, 95, 24, 10}, Check},
    {231, L"Button", L"Display", {161, 95, 35, 10}, Check},
    {225, L"Button", L"", {7, 130, 289, 14}, BS_FLAT | BS_LEFT | Tab},
    {-1, L"Static", L"Log File Size (MB):", {9, 149, 62, 8}},
    {208, L"Edit", L"", {73, 148, 49, 12}, Number},
    {204, L"Button", L"Append to File", {162, 149, 61, 10}, Check},
    {224, L"Button", L"Enable Simulation", {7, 164, 74, 10}, Check},
    {202, L"Button", L"Reset All", {7, 183, 50, 16}, BS_PUSHBUTTON | Tab},
    {1, L"Button", L"OK", {176, 183, 50, 16}, BS_DEFPUSHBUTTON | Tab},
    {2, L"Button", L"Cancel", {246, 183, 50, 16}, BS_PUSHBUTTON | Tab},
};

class DialogLayoutTest : public DialogTest
{
protected:
    DialogLayoutTest() { Create(); }

    /// What Windows makes of a box: corner and size are rounded each for itself.
    RECT InPixels(const RECT& box) const
    {
        RECT corner{box.left, box.top, 0, 0};
        RECT size{0, 0, box.right, box.bottom};
        ::MapDialogRect(m_dialog.Window(), &corner);
        ::MapDialogRect(m_dialog.Window(), &size);
        return {corner.left, corner.top, corner.left + size.right, corner.top + size.bottom};
    }

    RECT Place(HWND control) const
    {
        RECT place;
        ::GetWindowRect(control, &place);
        ::MapWindowPoints(nullptr, m_dialog.Window(), reinterpret_cast<POINT*>(&place), 2);
        return place;
    }

    void ExpectControl(HWND control, const Item& item) const
    {
        wchar_t text[100] = L"";
        ::GetClassNameW(control, text, 100);
        EXPECT_STREQ(text, item.windowClass);
        ::GetWindowTextW(control, text, 100);
        EXPECT_STREQ(text, item.text);
        if (item.id != -1) {
            EXPECT_EQ(::GetDlgCtrlID(control), item.id);
        }
        const LONG_PTR style = ::GetWindowLongPtrW(control, GWL_STYLE);
        EXPECT_EQ(style & item.style, item.style);
        EXPECT_EQ((style & WS_VISIBLE) != 0, item.visible);
        const RECT place = Place(control);
        const RECT wanted = InPixels(item.box);
        EXPECT_EQ(place.left, wanted.left);
        EXPECT_EQ(place.top, wanted.top);
        EXPECT_EQ(place.right, wanted.right);
        if (item.id != IDC_DEVICE) { // a closed list is as high as its text
            EXPECT_EQ(place.bottom, wanted.bottom);
        }
    }
};

TEST_F(DialogLayoutTest, EveryControlIsThereWithItsIdKindTextStyleAndBoxInTabOrder)
{
    HWND control = ::GetWindow(m_dialog.Window(), GW_CHILD);
    for (std::size_t i = 0; i < Items.size(); ++i, control = ::GetWindow(control, GW_HWNDNEXT)) {
        SCOPED_TRACE("control " + std::to_string(i));
        ASSERT_NE(control, nullptr);
        ExpectControl(control, Items[i]);
    }
    EXPECT_EQ(control, nullptr) << "and no other";
}

TEST_F(DialogLayoutTest, CaptionSizeAndFont)
{
    wchar_t text[100] = L"";
    ::GetWindowTextW(m_dialog.Window(), text, 100);
    EXPECT_STREQ(text, L"Morvane Port Router - Debug Options");
    RECT client;
    ::GetClientRect(m_dialog.Window(), &client);
    const RECT wanted = InPixels({0, 0, 302, 206});
    EXPECT_EQ(client.right, wanted.right);
    EXPECT_EQ(client.bottom, wanted.bottom);

    const auto font = reinterpret_cast<HFONT>(::SendMessageW(m_dialog.Window(), WM_GETFONT, 0, 0));
    LOGFONTW description{};
    ::GetObjectW(font, sizeof description, &description);
    EXPECT_STREQ(description.lfFaceName, L"MS Sans Serif");
    const HDC screen = ::GetDC(nullptr);
    EXPECT_EQ(-description.lfHeight, ::MulDiv(8, ::GetDeviceCaps(screen, LOGPIXELSY), 72));
    ::ReleaseDC(nullptr, screen);
}

bool IsFrame(HWND control)
{
    wchar_t name[20] = L"";
    ::GetClassNameW(control, name, 20);
    return ::_wcsicmp(name, L"Button") == 0 &&
           (::GetWindowLongPtrW(control, GWL_STYLE) & BS_TYPEMASK) == BS_GROUPBOX;
}

TEST_F(DialogLayoutTest, NoVisibleControlCoversAnotherOrSticksOut)
{
    RECT client;
    ::GetClientRect(m_dialog.Window(), &client);
    std::vector<HWND> controls;
    for (HWND control = ::GetWindow(m_dialog.Window(), GW_CHILD); control != nullptr;
         control = ::GetWindow(control, GW_HWNDNEXT))
    {
        const RECT place = Place(control);
        RECT inside;
        ::IntersectRect(&inside, &place, &client);
        EXPECT_TRUE(::EqualRect(&inside, &place)) << ::GetDlgCtrlID(control);
        if (!IsFrame(control) && (::GetWindowLongPtrW(control, GWL_STYLE) & WS_VISIBLE) != 0) {
            controls.push_back(control);
        }
    }
    for (std::size_t i = 0; i < controls.size(); ++i) {
        for (std::size_t j = i + 1; j < controls.size(); ++j) {
            const RECT one = Place(controls[i]);
            const RECT two = Place(controls[j]);
            RECT common;
            EXPECT_FALSE(::IntersectRect(&common, &one, &two))
                << ::GetDlgCtrlID(controls[i]) << " and " << ::GetDlgCtrlID(controls[j]);
        }
    }
}

} // namespace
