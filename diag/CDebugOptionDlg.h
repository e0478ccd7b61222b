// The Debug Options dialog, created hidden at start-up and shown by a double click on its tray icon.
#pragma once

#include "diag/DebugOptionsHost.h"
#include "diag/TrayIcon.h"
#include "win32/Windows.h"

#include <atomic>
#include <cstdint>

/// Modeless. Main thread, whose message loop gives it its messages; only Exists and IsVisible are for any thread.
/// It edits a copy of the options, taken when it is shown, and hands the copy to its host on OK.
class CDebugOptionDlg
{
public:
    explicit CDebugOptionDlg(const Shell& shell = {}) noexcept : m_shell(shell), m_tray(shell) {}
    ~CDebugOptionDlg() { Destroy(); }

    /// Builds the window, hidden, and puts up the tray icon. `program` has the resources, `host` must outlive the
    /// window. False when Windows refused the window or when there is one already.
    bool Create(HINSTANCE program, IDebugOptionsHost& host);
    void Destroy() noexcept;

    /// Whether the window is there, and whether it is on screen. Any thread; two loads, no call of Windows.
    bool Exists() const noexcept { return m_exists.load(std::memory_order_acquire); }
    bool IsVisible() const noexcept { return m_visible.load(std::memory_order_acquire); }

    /// For the message loop, before TranslateMessage: takes the keys that move in the dialog (Tab, Enter, Escape,
    /// arrows). True when the message is dealt with.
    bool TranslateDialogMessage(MSG& message) noexcept
    {
        return IsVisible() && ::IsDialogMessageW(m_window, &message) != FALSE;
    }

    HWND Window() const noexcept { return m_window; }

private:
    static INT_PTR CALLBACK DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept;
    bool Handle(UINT message, WPARAM wParam, LPARAM lParam);
    bool OnCommand(WORD id, WORD notification);
    bool OnButton(WORD id);
    void OnTimer();
    void OnEndSession(bool ends);
    void OnShow(bool shown);
    void OnPositionChanged(const WINDOWPOS& position) noexcept;
    void OnTrayCallback(LPARAM mouseMessage);
    void OnDestroy();

    void LoadOptions();
    void FillDevices();
    void FillControls(const CDebugOption& option);
    void ShowSelectedDevice();
    CDebugOption* SelectedOption();
    void StoreLength(WORD id);
    void ResetAll();
    void Apply();
    void Hide() noexcept { ::ShowWindow(m_window, SW_HIDE); }

    const Shell m_shell;
    HWND m_window = nullptr;
    IDebugOptionsHost* m_host = nullptr;
    HINSTANCE m_program = nullptr;
    UINT m_taskbarCreated = 0; // the shell's message
    DebugOptionsMap m_options; // the working copy; empty while hidden
    TrayIcon m_tray;
    bool m_sessionEnds = false;
    std::atomic<bool> m_exists{false};
    std::atomic<bool> m_visible{false};
};
