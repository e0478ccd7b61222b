#include "tests/unit/diag/DialogFixture.h"

DialogTest::DialogTest()
{
    ForgetShellCalls();
}

void DialogTest::Create()
{
    ASSERT_TRUE(m_dialog.Create(::GetModuleHandleW(nullptr), m_host));
}

void DialogTest::Show()
{
    if (!m_dialog.Exists()) {
        Create();
    }
    ::SendMessageW(m_dialog.Window(), WM_USER, 0, WM_LBUTTONDBLCLK);
    PumpMessages();
}

void DialogTest::AddDevice(std::int32_t number, const wchar_t* name, std::uint32_t mask)
{
    CDebugOption option(number);
    option.DeviceName = name;
    option.SetMask(mask);
    m_host.options.emplace(number, option);
}

std::wstring DialogTest::Text(int id) const
{
    wchar_t text[200] = L"";
    ::GetDlgItemTextW(m_dialog.Window(), id, text, 200);
    return text;
}

void DialogTest::Enter(int id, const wchar_t* text) const
{
    ::SetFocus(Control(id));
    ::SetDlgItemTextW(m_dialog.Window(), id, text);
    ::SetFocus(Control(IDC_RESET_ALL));
}

void DialogTest::Select(int index) const
{
    ::SendMessageW(Control(IDC_DEVICE), CB_SETCURSEL, static_cast<WPARAM>(index), 0);
    ::SendMessageW(m_dialog.Window(), WM_COMMAND, MAKEWPARAM(IDC_DEVICE, CBN_SELCHANGE),
                   reinterpret_cast<LPARAM>(Control(IDC_DEVICE)));
}

std::vector<std::wstring> DialogTest::DeviceList() const
{
    std::vector<std::wstring> texts;
    const LRESULT count = ::SendMessageW(Control(IDC_DEVICE), CB_GETCOUNT, 0, 0);
    for (LRESULT i = 0; i < count; ++i) {
        wchar_t text[200] = L"";
        ::SendMessageW(Control(IDC_DEVICE), CB_GETLBTEXT, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(text));
        texts.emplace_back(text);
    }
    return texts;
}

void DialogTest::Press(WORD key)
{
    ::PostMessageW(::GetFocus(), WM_KEYDOWN, key, 0);
    ::PostMessageW(::GetFocus(), WM_KEYUP, key, static_cast<LPARAM>(0xC0000000));
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (!m_dialog.TranslateDialogMessage(message)) {
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
    }
}
