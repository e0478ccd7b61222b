#include "diag/CDebugWindow.h"

#include "diag/Resource.h"
#include "win32/RegistryKey.h"

#include <array>
#include <string>
#include <utility>

namespace {

constexpr wchar_t ClassName[] = L"MorvaneDebugWindow";
constexpr wchar_t ProductKey[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter";
constexpr wchar_t PlacementKey[] = L"DebugWinSettings";

enum Command : WORD { ClearList = 150, Hold, Release, BringWindowToView };

HINSTANCE Program() noexcept
{
    return ::GetModuleHandleW(nullptr);
}

std::wstring Title()
{
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    std::array<wchar_t, 100> text{};
    ::wsprintfW(text.data(), L"%s - Debug Window (%d/%d %02d:%02d:%02d)", L"Morvane Port Router", now.wMonth,
                now.wDay, now.wHour, now.wMinute, now.wSecond);
    return text.data();
}

void RegisterWindowClass(WNDPROC procedure) noexcept
{
    WNDCLASSEXW definition{};
    definition.cbSize = sizeof definition;
    definition.lpfnWndProc = procedure;
    definition.hInstance = Program();
    definition.hIcon = ::LoadIconW(Program(), MAKEINTRESOURCEW(IDI_CONNECTED_1));
    definition.hCursor = ::LoadCursorW(nullptr, MAKEINTRESOURCEW(32512)); // the arrow
    definition.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_WINDOW + 1));
    definition.lpszClassName = ClassName;
    ::RegisterClassExW(&definition); // fails from the second time on, which is fine
}

struct Placement
{
    std::uint32_t x = 10;
    std::uint32_t y = 10;
    std::uint32_t width = 500;
    std::uint32_t height = 500;
};

/// The placement kept in the registry; the corner (0, 0) when the product's key does not open.
Placement LoadPlacement() noexcept
{
    Placement placement;
    const auto root = win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, ProductKey, KEY_ALL_ACCESS);
    if (!root) {
        return {.x = 0, .y = 0};
    }
    if (const auto key = win32::RegistryKey::Open(root.Get(), PlacementKey, KEY_READ | KEY_WRITE)) {
        placement.x = key.ReadDword(L"XOrigin").value_or(placement.x);
        placement.y = key.ReadDword(L"YOrigin").value_or(placement.y);
        placement.width = key.ReadDword(L"Width").value_or(placement.width);
        placement.height = key.ReadDword(L"Height").value_or(placement.height);
    }
    // Where Windows keeps a minimised window, on no screen. No page promises the number.
    constexpr auto minimisedOrigin = static_cast<std::uint32_t>(-32000);
    if (placement.x == minimisedOrigin && placement.y == minimisedOrigin) {
        placement.x = Placement().x;
        placement.y = Placement().y;
    }
    return placement;
}

/// Silent when the key cannot be written.
void SavePlacement(HWND window) noexcept
{
    RECT place;
    if (!::GetWindowRect(window, &place)) {
        return;
    }
    const auto root = win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, ProductKey, KEY_READ | KEY_WRITE);
    if (!root) {
        return;
    }
    if (const auto key = win32::RegistryKey::Create(root.Get(), PlacementKey, KEY_READ | KEY_WRITE)) {
        key.WriteDword(L"XOrigin", static_cast<std::uint32_t>(place.left));
        key.WriteDword(L"YOrigin", static_cast<std::uint32_t>(place.top));
        key.WriteDword(L"Width", static_cast<std::uint32_t>(place.right - place.left));
        key.WriteDword(L"Height", static_cast<std::uint32_t>(place.bottom - place.top));
    }
}

} // namespace

void CDebugWindow::Create()
{
    if (Exists()) {
        return;
    }
    RegisterWindowClass(&WindowProc);
    const Placement place = LoadPlacement();
    ::CreateWindowExW(0, ClassName, Title().c_str(), WS_OVERLAPPEDWINDOW | WS_VISIBLE | WS_CLIPCHILDREN,
                      static_cast<int>(place.x), static_cast<int>(place.y), static_cast<int>(place.width),
                      static_cast<int>(place.height), nullptr, nullptr, Program(), this);
    if (Exists() && !Closable) {
        ::EnableMenuItem(::GetSystemMenu(m_window, FALSE), SC_CLOSE, MF_BYCOMMAND | MF_GRAYED);
    }
}

void CDebugWindow::Destroy() noexcept
{
    if (Exists()) {
        ::DestroyWindow(m_window);
    }
}

LRESULT CALLBACK CDebugWindow::WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    if (message == WM_NCCREATE) {
        const auto* creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        auto* self = static_cast<CDebugWindow*>(creation->lpCreateParams);
        self->m_window = window;
        ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    }
    auto* self = reinterpret_cast<CDebugWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
    if (self == nullptr) {
        return ::DefWindowProcW(window, message, wParam, lParam);
    }
    return self->Handle(message, wParam, lParam);
}

LRESULT CDebugWindow::Handle(UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    switch (message) {
    case WM_CREATE: return OnCreate() ? 0 : -1;
    case WM_DESTROY: OnDestroy(); return 0;
    case WM_SIZE: m_list.Resize(LOWORD(lParam), HIWORD(lParam)); return 0;
    case WM_SETFOCUS: ::SetFocus(m_list.Window()); return 0; // the arrow keys scroll
    case WM_COMMAND: OnCommand(LOWORD(wParam)); return 0;
    case WM_TIMER:
        if (wParam == ServeTimer) {
            ServeQueue();
        } else {
            m_list.Paint();
        }
        return 0;
    case ServeMessage: ServeQueue(); return 0;
    case WM_ENTERMENULOOP:
    case WM_ENTERSIZEMOVE: OnLoopBegins(); break;
    case WM_EXITMENULOOP:
    case WM_EXITSIZEMOVE: OnLoopEnds(); break;
    case WM_CANCELMODE: CancelModeOfChild(); break;
    case WM_WINDOWPOSCHANGED: SavePlacement(m_window); break;
    case WM_QUERYENDSESSION: return TRUE;
    case WM_ENDSESSION:
        if (wParam != FALSE) {
            ::SendMessageW(m_window, WM_CANCELMODE, 0, 0);
            OnSessionEnd();
        }
        return 0;
    case WM_NCDESTROY:
        ::SetWindowLongPtrW(m_window, GWLP_USERDATA, 0);
        return ::DefWindowProcW(std::exchange(m_window, nullptr), message, wParam, lParam);
    default: break;
    }
    return ::DefWindowProcW(m_window, message, wParam, lParam);
}

bool CDebugWindow::OnCreate() noexcept
{
    m_menuBar = ::CreateMenu();
    ::AppendMenuW(m_menuBar, MF_STRING, BringWindowToView, L"&BringWindowToView");
    ::AppendMenuW(m_menuBar, MF_STRING, ClearList, L"&Clear");
    // Also for a window that comes back while held: what the user sees is the bar of a new window, and the next
    // Hold and Release set things right.
    ::AppendMenuW(m_menuBar, MF_STRING, Hold, L"&Hold");
    ::SetMenu(m_window, m_menuBar);

    return m_list.Create(m_window);
}

void CDebugWindow::OnDestroy() noexcept
{
    ::SetMenu(m_window, nullptr);
    ::DestroyMenu(m_menuBar);
    m_menuBar = nullptr;
    m_isServeTimerSet = false; // destroyed with the window
    m_list.ResetState();
}

/// A timer, because its message comes after all others: a message posted to itself would come before the user's
/// input.
void CDebugWindow::ServeSoon(bool on) noexcept
{
    if (on == m_isServeTimerSet || !Exists()) {
        return;
    }
    m_isServeTimerSet = on;
    if (on) {
        ::SetTimer(m_window, ServeTimer, USER_TIMER_MINIMUM, nullptr);
    } else {
        ::KillTimer(m_window, ServeTimer);
    }
}

/// The loop of a scroll bar belongs to the list, which has captured the pointer.
void CDebugWindow::CancelModeOfChild() noexcept
{
    const HWND captured = ::GetCapture();
    if (captured != nullptr && captured != m_window) {
        ::SendMessageW(captured, WM_CANCELMODE, 0, 0);
    }
}

void CDebugWindow::OnCommand(WORD id) noexcept
{
    switch (id) {
    case ClearList: m_list.Clear(); break;
    case Hold: SetHeld(true); break;
    case Release: SetHeld(false); break;
    case BringWindowToView:
        ::ShowWindow(m_window, SW_RESTORE);
        ::MoveWindow(m_window, 10, 10, 500, 500, TRUE);
        break;
    default: break;
    }
}

/// Hold and Release take each other's place, always at the end of the bar.
void CDebugWindow::SetHeld(bool held) noexcept
{
    m_list.Held = held;
    ::RemoveMenu(m_menuBar, held ? Hold : Release, MF_BYCOMMAND);
    ::AppendMenuW(m_menuBar, MF_STRING, held ? Release : Hold, held ? L"&Release" : L"&Hold");
    ::DrawMenuBar(m_window);
}
