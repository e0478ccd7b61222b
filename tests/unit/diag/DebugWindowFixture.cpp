#include "tests/unit/diag/DebugWindowFixture.h"

#include <array>
#include <cstdio>

namespace {

constexpr REGSAM ReadAndWrite = KEY_READ | KEY_WRITE;

win32::RegistryKey PlacementKey()
{
    return win32::RegistryKey::Create(
        HKEY_LOCAL_MACHINE, L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\DebugWinSettings",
        ReadAndWrite);
}

} // namespace

void DebugWindowTest::Keep(const wchar_t* name, std::uint32_t value) const
{
    PlacementKey().WriteDword(name, value);
}

std::optional<std::uint32_t> DebugWindowTest::Kept(const wchar_t* name) const
{
    return PlacementKey().ReadDword(name);
}

void DebugWindowTest::CreateProductKey() const
{
    ASSERT_TRUE(win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, ProductKey, ReadAndWrite));
}

void DebugWindowTest::Command(WORD id) const
{
    ::SendMessageW(m_window.Window(), WM_COMMAND, id, 0);
}

std::wstring DebugWindowTest::Line(int index) const
{
    const auto place = static_cast<WPARAM>(index);
    const LRESULT length = ::SendMessageW(List(), LB_GETTEXTLEN, place, 0);
    if (length == LB_ERR) {
        return L"(no such line)";
    }
    std::wstring line(static_cast<std::size_t>(length) + 1, L'\0');
    ::SendMessageW(List(), LB_GETTEXT, place, reinterpret_cast<LPARAM>(line.data()));
    line.pop_back();
    return line;
}

RECT DebugWindowTest::Place() const
{
    RECT place{};
    ::GetWindowRect(m_window.Window(), &place);
    return place;
}

std::vector<std::wstring> DebugWindowTest::MenuBar() const
{
    const HMENU bar = ::GetMenu(m_window.Window());
    std::vector<std::wstring> entries;
    for (int i = 0; i < ::GetMenuItemCount(bar); ++i) {
        std::array<wchar_t, 100> text{};
        ::GetMenuStringW(bar, static_cast<UINT>(i), text.data(), static_cast<int>(text.size()), MF_BYPOSITION);
        entries.push_back(std::wstring(text.data()) + L"/" + std::to_wstring(::GetMenuItemID(bar, i)));
    }
    return entries;
}

void DebugWindowTest::AddLines(int count)
{
    for (int i = 0; i < count; ++i) {
        std::array<char, 16> text{};
        std::snprintf(text.data(), text.size(), "%06d", i);
        m_window.AddLine(text.data(), false);
    }
}
