#include "diag/DebugList.h"

#include "win32/Text.h"

#include <algorithm>

bool DebugList::Create(HWND parent) noexcept
{
    constexpr INT_PTR listId = 100;
    constexpr WPARAM extent = 2000; // pixels that the list scrolls sideways
    m_parent = parent;
    RECT client;
    ::GetClientRect(parent, &client);
    // Sorted on purpose: each line begins with its time, so the order is that of the text.
    m_list = ::CreateWindowExW(0, L"LISTBOX", nullptr,
                               WS_CHILD | WS_VISIBLE | WS_BORDER | WS_VSCROLL | WS_HSCROLL | LBS_NOTIFY |
                                   LBS_SORT | LBS_NOINTEGRALHEIGHT,
                               0, 0, client.right, client.bottom, parent, reinterpret_cast<HMENU>(listId),
                               ::GetModuleHandleW(nullptr), nullptr);
    ::SendMessageW(m_list, WM_SETFONT, reinterpret_cast<WPARAM>(::GetStockObject(ANSI_VAR_FONT)), FALSE);
    ::SendMessageW(m_list, LB_SETHORIZONTALEXTENT, extent, 0);
    return m_list != nullptr;
}

void DebugList::ResetState() noexcept
{
    m_list = nullptr;
    m_dirty = false;
    m_wantedTop = -1;
}

void DebugList::Resize(int width, int height) noexcept
{
    ::MoveWindow(m_list, 0, 0, width, height, TRUE);
}

int DebugList::AddLine(std::string_view text, bool scroll)
{
    if (m_list == nullptr) {
        return -1;
    }
    if (::SendMessageW(m_list, LB_GETCOUNT, 0, 0) >= MaxLines) {
        Clear();
    }
    PaintLater();
    const std::wstring line = win32::FromAnsi(text);
    const auto add = [&] {
        return static_cast<int>(::SendMessageW(m_list, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(line.c_str())));
    };
    int index = add();
    if (index == LB_ERRSPACE) {
        Clear();
        index = add();
    }
    if (scroll) {
        m_wantedTop = index;
        PaintIfDue();
    }
    return index;
}

void DebugList::ScrollTo(int index) noexcept
{
    if (m_list == nullptr) {
        return;
    }
    if (index > 0) {
        m_wantedTop = index;
        PaintLater();
    }
    PaintIfDue();
}

void DebugList::Clear() noexcept
{
    if (m_list != nullptr) {
        PaintLater();
        ::SendMessageW(m_list, LB_RESETCONTENT, 0, 0);
        m_wantedTop = -1;
    }
}

/// Nothing of a change can be seen before Paint.
void DebugList::PaintLater() noexcept
{
    if (!m_dirty) {
        m_dirty = true;
        ::SendMessageW(m_list, WM_SETREDRAW, FALSE, 0);
        ::SetTimer(m_parent, PaintTimer, std::max(m_interval, PaintInterval), nullptr);
    }
}

void DebugList::PaintIfDue() noexcept
{
    if (m_dirty && ::GetTickCount() - m_lastPaint >= m_interval) {
        Paint();
    }
}

void DebugList::Paint() noexcept
{
    ::KillTimer(m_parent, PaintTimer);
    if (m_list == nullptr || !m_dirty) {
        return;
    }
    const DWORD begin = ::GetTickCount();
    m_dirty = false;
    ::SendMessageW(m_list, WM_SETREDRAW, TRUE, 0);
    if (m_wantedTop >= 0 && !Held) {
        ::SendMessageW(m_list, LB_SETTOPINDEX, static_cast<WPARAM>(m_wantedTop), 0);
    }
    m_wantedTop = -1;
    ::RedrawWindow(m_list, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
    // On a slow display no more than a fifth of the time goes into painting.
    m_lastPaint = ::GetTickCount();
    m_interval = std::max(PaintInterval, 4 * (m_lastPaint - begin));
}
