// The Debug Options dialog on the test's own thread, with a module that remembers.
#pragma once

#include "diag/CDebugOptionDlg.h"
#include "diag/Resource.h"
#include "tests/unit/diag/FakeHost.h"
#include "tests/unit/diag/Pump.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

class DialogTest : public testing::Test
{
protected:
    DialogTest();

    void Create();
    /// As a double click on the tray icon does.
    void Show();
    void AddDevice(std::int32_t number, const wchar_t* name, std::uint32_t mask = 0);

    HWND Control(int id) const { return ::GetDlgItem(m_dialog.Window(), id); }
    std::wstring Text(int id) const;
    bool IsChecked(int id) const { return ::IsDlgButtonChecked(m_dialog.Window(), id) == BST_CHECKED; }
    bool IsEnabled(int id) const { return ::IsWindowEnabled(Control(id)) != FALSE; }

    /// As the mouse does: the box toggles and tells the dialog.
    void Click(int id) const { ::SendMessageW(Control(id), BM_CLICK, 0, 0); }
    /// Types into an edit and leaves it.
    void Enter(int id, const wchar_t* text) const;
    void Select(int index) const;
    std::vector<std::wstring> DeviceList() const;

    /// A key goes to the window that has the focus, by way of the message loop of the program.
    void Press(WORD key);
    int FocusedId() const { return ::GetDlgCtrlID(::GetFocus()); }

    FakeHost m_host;
    CDebugOptionDlg m_dialog{RecordingShell()};
};
