// What the controls of the Debug Options dialog show and do.
#include "diag/CDebugOptionDlg.h"
#include "diag/Resource.h"

#include <algorithm>
#include <array>

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

constexpr UINT DefaultLogLimit = 10; // megabytes

} // namespace

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
    switch (notification) {
    case BN_CLICKED: return OnButton(id);
    case CBN_SELCHANGE:
        if (id == IDC_DEVICE) {
            ShowSelectedDevice();
            return true;
        }
        return false;
    case EN_KILLFOCUS:
        if (id == IDC_MAX_PACKET || id == IDC_MAX_PARSED) {
            StoreLength(id);
            return true;
        }
        return false;
    default: return false;
    }
}

bool CDebugOptionDlg::OnButton(WORD id)
{
    switch (id) {
    case IDOK: Apply(); return true;
    case IDCANCEL: Hide(); return true;
    case IDC_RESET_ALL: ResetAll(); return true;
    case IDC_LOG_FOLDER: OpenLogFolder(); return true;
    default: break;
    }
    const auto box = std::ranges::find(MaskBoxes, id, &MaskBox::id);
    if (box == MaskBoxes.end()) {
        return false;
    }
    StoreMaskBit(id, box->bit);
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

void CDebugOptionDlg::StoreMaskBit(WORD id, unsigned bit)
{
    if (CDebugOption* option = SelectedOption()) {
        option->SetMaskBit(bit, ::IsDlgButtonChecked(m_window, id) == BST_CHECKED);
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
    ::SetDlgItemInt(m_window, IDC_LOG_FILE_SIZE, DefaultLogLimit, TRUE);
    ::CheckDlgButton(m_window, IDC_APPEND_TO_FILE, BST_CHECKED);
    ::CheckDlgButton(m_window, IDC_ENABLE_SIMULATION, BST_UNCHECKED);
}

void CDebugOptionDlg::Apply()
{
    FinishEditing();
    m_host->ApplySettings(::GetDlgItemInt(m_window, IDC_LOG_FILE_SIZE, nullptr, TRUE),
                          ::IsDlgButtonChecked(m_window, IDC_APPEND_TO_FILE) == BST_CHECKED,
                          ::IsDlgButtonChecked(m_window, IDC_ENABLE_SIMULATION) == BST_CHECKED, m_options);
    Hide();
}

/// The Enter key presses OK without taking the focus off the edit that is being typed in; a length is stored when
/// its edit loses the focus.
void CDebugOptionDlg::FinishEditing() noexcept
{
    const HWND focus = ::GetFocus();
    if (focus == ::GetDlgItem(m_window, IDC_MAX_PACKET) || focus == ::GetDlgItem(m_window, IDC_MAX_PARSED)) {
        ::SetFocus(::GetDlgItem(m_window, IDOK));
    }
}

void CDebugOptionDlg::OpenLogFolder() const
{
    m_shell.Execute(m_window, L"explore", m_host->LogFolder().c_str(), nullptr, nullptr, SW_SHOWNORMAL);
}
