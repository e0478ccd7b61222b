// A debug window on the test's own thread, over a registry of the test's own.
#pragma once

#include "diag/CDebugWindow.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/diag/Pump.h"
#include "win32/RegistryKey.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

inline constexpr WORD ClearCommand = 150;
inline constexpr WORD HoldCommand = 151;
inline constexpr WORD ReleaseCommand = 152;
inline constexpr WORD BringCommand = 153;

class DebugWindowTest : public testing::Test
{
protected:
    static constexpr wchar_t ProductKey[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter";

    /// The key below which the placement is kept, with that value in it.
    void Keep(const wchar_t* name, std::uint32_t value) const;
    std::optional<std::uint32_t> Kept(const wchar_t* name) const;
    void CreateProductKey() const;

    void Command(WORD id) const;
    HWND List() const { return ::GetDlgItem(m_window.Window(), 100); }
    int Count() const { return static_cast<int>(::SendMessageW(List(), LB_GETCOUNT, 0, 0)); }
    int Top() const { return static_cast<int>(::SendMessageW(List(), LB_GETTOPINDEX, 0, 0)); }
    std::wstring Line(int index) const;
    RECT Place() const;
    /// The entries of the menu bar, as "text/id".
    std::vector<std::wstring> MenuBar() const;
    void AddLines(int count);

    support::RegistryRoot m_registry{HKEY_LOCAL_MACHINE};
    CDebugWindow m_window;
};

using Texts = std::vector<std::wstring>;

inline bool operator==(const RECT& a, const RECT& b)
{
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}
