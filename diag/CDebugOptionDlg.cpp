// The window itself: creation, messages, showing and hiding. What its controls do is in DebugOptionControls.cpp.
#include "diag/CDebugOptionDlg.h"

#include "diag/Resource.h"

#include <utility>

bool CDebugOptionDlg::Create(HINSTANCE program, IDebugOptionsHost& host)
{
    if (m_window != nullptr) {
        return false;
    }
    m_program = program;
    m_host = &host;
    m_taskbarCreated = ::RegisterWindowMessageW(L"TaskbarCreated");
    ::CreateDialogParamW(program, MAKEINTRESOURCEW(IDD_DEBUG_OPTIONS), nullptr, &DialogProc,
                         reinterpret_cast<LPARAM>(this));
    m_exists = m_window != nullptr;
    // A shell that starts again broadcasts this message ("The Taskbar"). Without the filter's leave it does not
    // reach a router with more rights than the shell ("ChangeWindowMessageFilterEx function").
    ::ChangeWindowMessageFilterEx(m_window, m_taskbarCreated, MSGFLT_ALLOW, nullptr);
    return m_exists;
}

void CDebugOptionDlg::Destroy() noexcept
{
    if (m_window != nullptr) {
        ::DestroyWindow(m_window);
    }
}

bool CDebugOptionDlg::TranslateDialogMessage(MSG& message) noexcept
{
    return IsVisible() && ::IsDialogMessageW(m_window, &message) != FALSE;
}

INT_PTR CALLBACK CDebugOptionDlg::DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    if (message == WM_INITDIALOG) {
        reinterpret_cast<CDebugOptionDlg*>(lParam)->m_window = window;
        ::SetWindowLongPtrW(window, DWLP_USER, lParam);
    }
    auto* self = reinterpret_cast<CDebugOptionDlg*>(::GetWindowLongPtrW(window, DWLP_USER));
    if (self == nullptr) {
        return FALSE;
    }
    try {
        return self->Handle(message, wParam, lParam) ? TRUE : FALSE;
    } catch (...) {
        return FALSE; // nothing thrown may pass through Windows; the message counts as not handled
    }
}

/// True: handled; false: the default handling of a dialog follows.
bool CDebugOptionDlg::Handle(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_INITDIALOG:
        m_tray.SetUp(m_window, m_program, *m_host);
        return false; // an invisible window must not take the keyboard
    case WM_SHOWWINDOW: OnShow(wParam != FALSE); return false;
    case WM_WINDOWPOSCHANGED: OnPositionChanged(*reinterpret_cast<const WINDOWPOS*>(lParam)); return false;
    case WM_TIMER: OnTimer(); return true;
    case TrayIcon::CallbackMessage:
        // DM_GETDEFID has the same number and no parameters ("DM_GETDEFID message"); a message of the icon has the
        // mouse message ("Shell_NotifyIconW function").
        if (lParam == 0) {
            return false;
        }
        OnTrayCallback(lParam);
        return true;
    case WM_CONTEXTMENU: return true;
    // "WM_QUERYENDSESSION message": answer TRUE, and end only with WM_ENDSESSION.
    case WM_QUERYENDSESSION: ::SetWindowLongPtrW(m_window, DWLP_MSGRESULT, TRUE); return true;
    case WM_ENDSESSION: OnEndSession(wParam != FALSE); return true;
    case WM_COMMAND: return OnCommand(LOWORD(wParam), HIWORD(wParam));
    case WM_DESTROY: OnDestroy(); return true;
    default: break;
    }
    if (message == m_taskbarCreated && message != 0) {
        m_tray.Restore();
    }
    return false;
}

// The tray icon's timer, which runs in every loop of this thread.
void CDebugOptionDlg::OnTimer()
{
    m_tray.Refresh();
    if (m_host->IsQuitWanted()) {
        // Still here: a menu or the moving of the window has taken the message for itself. It is ended, and the
        // message repeated.
        ::SendMessageW(m_window, WM_CANCELMODE, 0, 0);
        ::PostQuitMessage(0);
    }
}

// Comes from Windows, from the debug window, or from both.
void CDebugOptionDlg::OnEndSession(bool ends)
{
    ::SetWindowLongPtrW(m_window, DWLP_MSGRESULT, 0);
    if (ends && !std::exchange(m_sessionEnds, true)) {
        ::SendMessageW(m_window, WM_CANCELMODE, 0, 0); // a menu's loop would go on without its window
        m_host->OnSessionEnd();
    }
}

void CDebugOptionDlg::OnShow(bool shown)
{
    if (shown) {
        m_visible = true; // before anything of it can be seen
        LoadOptions();
    } else {
        m_options.clear();
    }
}

/// The way in which a window was shown or hidden does not matter to this message.
void CDebugOptionDlg::OnPositionChanged(const WINDOWPOS& position) noexcept
{
    if ((position.flags & (SWP_SHOWWINDOW | SWP_HIDEWINDOW)) != 0) {
        m_visible = ::IsWindowVisible(m_window) != FALSE;
    }
}

void CDebugOptionDlg::OnTrayCallback(LPARAM mouseMessage)
{
    if (mouseMessage == WM_RBUTTONUP) {
        // What is chosen is left unused on purpose: the entry only closes the menu, the double click opens.
        m_tray.ShowPopupMenu(IDR_TRAY_MENU);
    } else if (mouseMessage == WM_LBUTTONDBLCLK) {
        ShowToUser();
    }
}

/// Opened again, the keyboard begins at the top, wherever it was left the last time.
void CDebugOptionDlg::ShowToUser() noexcept
{
    const bool opening = !IsVisible();
    ::ShowWindow(m_window, SW_SHOW);
    ::SetForegroundWindow(m_window);
    if (opening) {
        ::SendMessageW(m_window, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(::GetDlgItem(m_window, IDC_DEVICE)),
                       TRUE);
    }
}

void CDebugOptionDlg::OnDestroy()
{
    m_exists = false;
    m_visible = false;
    m_tray.EnableTray(false);
    m_options.clear();
    ::SetWindowLongPtrW(m_window, DWLP_USER, 0);
    m_window = nullptr;
}

void CDebugOptionDlg::Hide() noexcept
{
    ::ShowWindow(m_window, SW_HIDE);
}
