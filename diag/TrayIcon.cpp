#include "diag/TrayIcon.h"

#include "diag/Resource.h"

#include <array>

void TrayIcon::SetUp(HWND window, HINSTANCE program, const IDebugOptionsHost& host)
{
    m_window = window;
    m_program = program;
    m_host = &host;
    SetTooltip(StateText(0));
    SetIcon(IDI_DISCONNECTED);
    EnableTray(true);
    SetTimerState(true, RefreshInterval);
}

void TrayIcon::Refresh()
{
    if (m_enabled && !m_isShown) {
        Notify(NIM_ADD);
    }
    const std::uint32_t bytes = m_host->GetTransferredBytes();
    const auto delta = static_cast<std::int32_t>(bytes - m_lastBytes); // the counter may wrap around
    m_lastBytes = bytes;
    Animate(delta);
    SetTooltip(StateText(delta / 1000));
}

/// Moves for the first ticks after each connection, then only while data does.
void TrayIcon::Animate(std::int32_t delta)
{
    constexpr std::int32_t framesAfterConnecting = 10;
    constexpr std::array<UINT, 3> frames{IDI_CONNECTED_1, IDI_CONNECTED_2, IDI_CONNECTED_3};
    if (!m_host->IsConnected()) {
        SetIcon(IDI_DISCONNECTED);
        m_animation = 0;
    } else if (delta > 0 || m_animation < framesAfterConnecting) {
        SetIcon(frames[static_cast<std::size_t>(m_animation) % frames.size()]);
        ++m_animation;
    }
}

std::wstring TrayIcon::StateText(std::int32_t speed) const
{
    const wchar_t* status = L"Disconnected";
    if (m_host->IsConnected()) {
        status = m_host->IsUpdatingFirmware() ? L"Updating Firmware ..." : L"Connected";
    }
    // By design another product name: it is the one that the tooltip has always had.
    std::array<wchar_t, 100> text{};
    ::wsprintfW(text.data(), L"Tarn Port Router\nStatus: %s\nSpeed: %d KB/s", status, speed);
    return text.data();
}

void TrayIcon::SetTimerState(bool on, UINT interval)
{
    if (m_timer != 0) {
        ::KillTimer(m_window, m_timer);
    }
    m_interval = interval;
    m_timer = on ? ::SetTimer(m_window, TimerId, m_interval, nullptr) : 0;
}

void TrayIcon::EnableTray(bool on)
{
    if (!on) {
        SetTimerState(false, m_interval);
        RemoveTrayIcon();
    } else if (!::IsWindowVisible(m_window)) {
        m_enabled = true;
        Notify(NIM_ADD);
    }
}

// The shell refuses an icon while it is busy, as at logon, and announces no taskbar afterwards. A refusal may also
// come from a shell that answers too late: then the icon is there, and its next change succeeds.
void TrayIcon::Notify(DWORD message)
{
    NOTIFYICONDATAW data{};
    data.cbSize = sizeof data;
    data.hWnd = m_window;
    data.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
    data.uCallbackMessage = CallbackMessage;
    data.hIcon = ::LoadIconW(m_program, MAKEINTRESOURCEW(m_iconId));
    m_tooltip.copy(data.szTip, TooltipCapacity - 1);
    m_isShown = m_shell.NotifyIcon(message, &data) != FALSE && message != NIM_DELETE;
}

UINT TrayIcon::ShowPopupMenu(UINT menuId)
{
    const HMENU menu = ::LoadMenuW(m_program, MAKEINTRESOURCEW(menuId));
    if (menu == nullptr) {
        return 0;
    }
    // In the foreground, and followed by a message: otherwise the menu stays when the user clicks elsewhere.
    ::SetForegroundWindow(m_window);
    POINT pointer{};
    ::GetCursorPos(&pointer);
    const BOOL chosen = ::TrackPopupMenu(::GetSubMenu(menu, 0), TPM_RIGHTBUTTON | TPM_RETURNCMD, pointer.x,
                                         pointer.y, 0, m_window, nullptr);
    ::PostMessageW(m_window, WM_NULL, 0, 0);
    ::DestroyMenu(menu);
    return static_cast<UINT>(chosen);
}
