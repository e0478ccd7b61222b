#include "diag/CDebugOptionDlg.h"

#include "diag/Resource.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

struct MaskBox
{
    WORD id;
    unsigned bit;
};

/// Upper half: to the log file; lower half: to the debug window.
constexpr std::array<MaskBox, 12> MaskBoxes{{
    {IDC_READ_WRITE_LOG, 16},
    {IDC_READ_WRITE_SHOW, 0},
    {IDC_PARSING_LOG, 17},
    {IDC_PARSING_SHOW, 1},
    {IDC_PIPE_LOG, 18},
    {IDC_PIPE_SHOW, 2},
    {IDC_USB_LOG, 19},
    {IDC_USB_SHOW, 3},
    {IDC_DISPATCH_LOG, 20},
    {IDC_DISPATCH_SHOW, 4},
    {IDC_GENERAL_LOG, 21},
    {IDC_GENERAL_SHOW, 5},
}};

/// Reads and writes of whole packets are traced for the router itself and for no single device.
constexpr std::int32_t ReadWriteDevice = -1;

} // namespace

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
        // A menu or the moving of the window took the message for itself. End that and repeat the message.
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
        const bool opening = !IsVisible();
        ::ShowWindow(m_window, SW_SHOW);
        ::SetForegroundWindow(m_window);
        if (opening) {
            // The keyboard begins at the top, wherever it was left the last time.
            const HWND first = ::GetDlgItem(m_window, IDC_DEVICE);
            ::SendMessageW(m_window, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(first), TRUE);
        }
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

void CDebugOptionDlg::LoadOptions()
{
    m_options = m_host->DeviceOptions();
    FillDevices();
    ::SetDlgItemInt(m_window, IDC_LOG_FILE_SIZE, m_host->LogFileLimit(), TRUE);
    ::CheckDlgButton(m_window, IDC_APPEND_TO_FILE, m_host->AppendLogFile() ? BST_CHECKED : BST_UNCHECKED);
    ::CheckDlgButton(m_window, IDC_ENABLE_SIMULATION, m_host->SimulateUsb() ? BST_CHECKED : BST_UNCHECKED);
    ::SetDlgItemTextW(m_window, IDC_LOG_FOLDER, (L"Log File Name:   " + m_host->LogFileName()).c_str());
}

/// The list sorts itself by text: the entry that comes first is shown.
void CDebugOptionDlg::FillDevices()
{
    const HWND list = ::GetDlgItem(m_window, IDC_DEVICE);
    ::SendMessageW(list, CB_RESETCONTENT, 0, 0);
    for (const auto& [number, option] : m_options) {
        const std::wstring text = option.DeviceName + L" (" + std::to_wstring(number) + L")";
        const LRESULT index = ::SendMessageW(list, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(text.c_str()));
        ::SendMessageW(list, CB_SETITEMDATA, static_cast<WPARAM>(index), number);
        if (index == 0) {
            ::SendMessageW(list, CB_SETCURSEL, 0, 0);
            FillControls(option);
        }
    }
}

void CDebugOptionDlg::FillControls(const CDebugOption& option)
{
    const BOOL readWrite = option.DeviceNumber == ReadWriteDevice;
    ::EnableWindow(::GetDlgItem(m_window, IDC_READ_WRITE_LOG), readWrite);
    ::EnableWindow(::GetDlgItem(m_window, IDC_READ_WRITE_SHOW), readWrite);
    const std::uint32_t mask = option.GetMask();
    for (const MaskBox& box : MaskBoxes) {
        ::CheckDlgButton(m_window, box.id, (mask >> box.bit & 1) != 0 ? BST_CHECKED : BST_UNCHECKED);
    }
    ::SetDlgItemInt(m_window, IDC_MAX_PARSED, option.MaxParsedPacketLength, TRUE);
    ::SetDlgItemInt(m_window, IDC_MAX_PACKET, option.MaxPacketLength, TRUE);
}

bool CDebugOptionDlg::OnCommand(WORD id, WORD notification)
{
    if (notification == BN_CLICKED) {
        return OnButton(id);
    }
    if (notification == CBN_SELCHANGE && id == IDC_DEVICE) {
        ShowSelectedDevice();
        return true;
    }
    if (notification == EN_KILLFOCUS && (id == IDC_MAX_PACKET || id == IDC_MAX_PARSED)) {
        StoreLength(id);
        return true;
    }
    return false;
}

bool CDebugOptionDlg::OnButton(WORD id)
{
    switch (id) {
    case IDOK: Apply(); return true;
    case IDCANCEL: Hide(); return true;
    case IDC_RESET_ALL: ResetAll(); return true;
    case IDC_LOG_FOLDER:
        m_shell.Execute(m_window, L"explore", m_host->LogFolder().c_str(), nullptr, nullptr, SW_SHOWNORMAL);
        return true;
    default: break;
    }
    const auto box = std::ranges::find(MaskBoxes, id, &MaskBox::id);
    if (box == MaskBoxes.end()) {
        return false;
    }
    if (CDebugOption* option = SelectedOption()) {
        option->SetMaskBit(box->bit, ::IsDlgButtonChecked(m_window, id) == BST_CHECKED);
    }
    return true;
}

CDebugOption* CDebugOptionDlg::SelectedOption()
{
    const HWND list = ::GetDlgItem(m_window, IDC_DEVICE);
    const LRESULT index = ::SendMessageW(list, CB_GETCURSEL, 0, 0);
    if (index == CB_ERR) {
        return nullptr;
    }
    const LRESULT number = ::SendMessageW(list, CB_GETITEMDATA, static_cast<WPARAM>(index), 0);
    const auto found = m_options.find(static_cast<std::int32_t>(number));
    return found == m_options.end() ? nullptr : &found->second;
}

void CDebugOptionDlg::ShowSelectedDevice()
{
    if (const CDebugOption* option = SelectedOption()) {
        FillControls(*option);
    }
}

void CDebugOptionDlg::StoreLength(WORD id)
{
    if (CDebugOption* option = SelectedOption()) {
        const std::uint32_t length = ::GetDlgItemInt(m_window, id, nullptr, TRUE);
        (id == IDC_MAX_PACKET ? option->MaxPacketLength : option->MaxParsedPacketLength) = length;
    }
}

void CDebugOptionDlg::ResetAll()
{
    for (auto& [number, option] : m_options) {
        option.Reset();
    }
    ShowSelectedDevice();
    ::SetDlgItemInt(m_window, IDC_LOG_FILE_SIZE, 10, TRUE); // megabytes
    ::CheckDlgButton(m_window, IDC_APPEND_TO_FILE, BST_CHECKED);
    ::CheckDlgButton(m_window, IDC_ENABLE_SIMULATION, BST_UNCHECKED);
}

void CDebugOptionDlg::Apply()
{
    // The Enter key presses OK without taking the focus off the edit that is being typed in; a length is stored
    // when its edit loses the focus.
    const HWND focus = ::GetFocus();
    if (focus == ::GetDlgItem(m_window, IDC_MAX_PACKET) || focus == ::GetDlgItem(m_window, IDC_MAX_PARSED)) {
        ::SetFocus(::GetDlgItem(m_window, IDOK));
    }
    m_host->ApplySettings(::GetDlgItemInt(m_window, IDC_LOG_FILE_SIZE, nullptr, TRUE),
                          ::IsDlgButtonChecked(m_window, IDC_APPEND_TO_FILE) == BST_CHECKED,
                          ::IsDlgButtonChecked(m_window, IDC_ENABLE_SIMULATION) == BST_CHECKED, m_options);
    Hide();
}
