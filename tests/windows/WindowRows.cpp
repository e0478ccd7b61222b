#include "tests/windows/Row.h"

#include "win32/Event.h"
#include "win32/Thread.h"

#include <shellapi.h>

#include <atomic>

namespace windowscheck {

namespace {

constexpr wchar_t ClassName[] = L"MorvaneWindowsCheck";

/// An invisible window of the calling thread.
class HiddenWindow
{
public:
    HiddenWindow()
    {
        WNDCLASSW description{};
        description.lpfnWndProc = ::DefWindowProcW;
        description.hInstance = ::GetModuleHandleW(nullptr);
        description.lpszClassName = ClassName;
        ::RegisterClassW(&description);
        m_window = ::CreateWindowExW(WS_EX_TOOLWINDOW, ClassName, L"", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr,
                                     description.hInstance, nullptr);
    }
    ~HiddenWindow() { ::DestroyWindow(m_window); }
    HiddenWindow(const HiddenWindow&) = delete;
    HiddenWindow& operator=(const HiddenWindow&) = delete;
    HWND Get() const { return m_window; }

private:
    HWND m_window = nullptr;
};

std::atomic<bool> timerRan;

void CALLBACK OnTimer(HWND, UINT, UINT_PTR, DWORD) noexcept
{
    timerRan = true;
    ::EndMenu();
}

Found TimersInMenus()
{
    const HiddenWindow window;
    if (window.Get() == nullptr) {
        return Skipped("no window can be made here");
    }
    timerRan = false;
    const HMENU menu = ::CreatePopupMenu();
    ::AppendMenuW(menu, MF_STRING, 1, L"WindowsCheck");
    const UINT_PTR timer = ::SetTimer(window.Get(), 1, 200, OnTimer);
    // Closes the menu of a Windows in which the timer does not run.
    const win32::Event over(win32::Event::Kind::ManualReset);
    win32::Thread guard;
    guard.Start([&] {
        if (!over.Wait(5'000)) {
            ::PostMessageW(window.Get(), WM_CANCELMODE, 0, 0);
        }
    });
    ::SetForegroundWindow(window.Get());
    ::TrackPopupMenu(menu, TPM_RETURNCMD, 0, 0, 0, window.Get(), nullptr);
    over.Set();
    guard.Join();
    ::KillTimer(window.Get(), timer);
    ::DestroyMenu(menu);
    return HoldsIf(timerRan, "the timer did not run while the menu was open");
}

Found IconInTheNotificationArea()
{
    const HiddenWindow window;
    if (::FindWindowW(L"Shell_TrayWnd", nullptr) == nullptr) {
        return Skipped("there is no taskbar");
    }
    NOTIFYICONDATAW icon{};
    icon.cbSize = sizeof icon;
    icon.hWnd = window.Get();
    icon.uID = 1;
    icon.uFlags = NIF_ICON;
    icon.hIcon = ::LoadIconW(nullptr, IDI_APPLICATION);
    const bool added = ::Shell_NotifyIconW(NIM_ADD, &icon) != FALSE;
    const bool removed = ::Shell_NotifyIconW(NIM_DELETE, &icon) != FALSE;
    return HoldsIf(added && removed, "an icon can't be added and removed");
}

Found RestartManagerMessages()
{
    return Skipped("only the end of a session shows it; see windows-check.md");
}
Found Drivers()
{
    return Skipped("only an instrument's driver shows it; see windows-check.md");
}
Found Elevation()
{
    return Skipped("it needs two users' rights; see windows-check.md");
}
Found Scaling()
{
    return Skipped("only the eye sees it; see windows-check.md");
}

} // namespace

std::vector<Row> WindowRows()
{
    return {
        {"A thread's timers run while a menu of it is open.", "TrackPopupMenu function", TimersInMenus},
        {"An icon can be added to the notification area.", "Shell_NotifyIconW function",
         IconInTheNotificationArea},
        {"Windows tells a program that the session ends, and waits for its answer.", "WM_ENDSESSION message",
         RestartManagerMessages},
        {"A thread with pending requests of a driver stays until the driver has completed them.",
         "Cancelling Threads That Are Performing I/O", Drivers},
        {"The driver writes both statuses of a direct transfer into its request.", "DeviceIoControl function",
         Drivers},
        {"A client and a server of different elevation do not meet.", "The COM Elevation Moniker", Elevation},
        {"Windows scales the windows of a program that leaves it to Windows.", "Application manifests", Scaling},
    };
}

} // namespace windowscheck
