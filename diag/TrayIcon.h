// The icon in the notification area: connection, transfer rate, and the way to the Debug Options dialog.
#pragma once

#include "diag/DebugOptionsHost.h"
#include "win32/Windows.h"

#include <shellapi.h>
#include <cstdint>
#include <string>

/// The calls into Windows' shell that a test wants to see instead of the user.
struct Shell
{
    decltype(&::Shell_NotifyIconW) NotifyIcon = &::Shell_NotifyIconW;
    decltype(&::ShellExecuteW) Execute = &::ShellExecuteW;
};

/// Belongs to the Debug Options dialog and is used on that window's thread alone. When the shell is missing or
/// refuses, the icon is added again with the next reading, or by Restore.
class TrayIcon
{
public:
    static constexpr UINT CallbackMessage = WM_USER;
    static constexpr UINT RefreshInterval = 1000;      // ms
    static constexpr std::size_t TooltipCapacity = 64; // characters, with the terminator

    explicit TrayIcon(const Shell& shell = {}) noexcept : m_shell(shell) {}

    /// Shows "disconnected" at speed 0 and starts the timer. `window` gets the callbacks and the timer,
    /// `program` has the icons and the menu, `host` is asked for the state; all three must outlive the icon.
    void SetUp(HWND window, HINSTANCE program, const IDebugOptionsHost& host);

    /// Takes a new reading of the transport, and adds an icon that is missing: for each WM_TIMER.
    void Refresh();

    /// Puts the icon back: for TaskbarCreated, which says that the shell's taskbar was recreated.
    void Restore()
    {
        if (m_enabled) {
            Notify(NIM_ADD);
        }
    }

    void RemoveTrayIcon()
    {
        m_enabled = false;
        Notify(NIM_DELETE);
    }
    void SetTooltip(const std::wstring& text)
    {
        m_tooltip = text;
        Notify(NIM_MODIFY);
    }
    void SetIcon(UINT resourceId)
    {
        m_iconId = resourceId;
        Notify(NIM_MODIFY);
    }
    void SetTimerState(bool on, UINT interval);
    /// On: adds the icon, unless the dialog is visible. Off: ends the timer and removes the icon.
    void EnableTray(bool on);

    /// Lets the user choose at the pointer; 0 for nothing, and when the menu cannot be loaded.
    UINT ShowPopupMenu(UINT menuId);

private:
    static constexpr UINT_PTR TimerId = 1;

    void Animate(std::int32_t delta);
    std::wstring StateText(std::int32_t speed) const;
    void Notify(DWORD message);

    const Shell m_shell;
    HWND m_window = nullptr;
    HINSTANCE m_program = nullptr;
    const IDebugOptionsHost* m_host = nullptr;
    bool m_enabled = false;
    bool m_isShown = false; // by the shell's last answer
    UINT m_iconId = 0;
    std::wstring m_tooltip;
    UINT_PTR m_timer = 0; // 0: no timer
    UINT m_interval = 0;  // ms
    std::uint32_t m_lastBytes = 0;
    std::int32_t m_animation = 0; // frames shown since the connection
};
