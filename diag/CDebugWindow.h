// The window that shows trace lines as they are written.
#pragma once

#include "diag/DebugList.h"
#include "win32/Windows.h"

#include <functional>
#include <string_view>

/// A top-level window filled by a sorted list of lines. Created, filled and destroyed by one thread, the
/// tracer's, which pumps its messages. Its place on the screen is kept in the registry.
class CDebugWindow
{
public:
    CDebugWindow() noexcept = default;
    ~CDebugWindow() { Destroy(); }
    CDebugWindow(const CDebugWindow&) = delete;
    CDebugWindow& operator=(const CDebugWindow&) = delete;

    /// Builds and shows the window; without effect when there is one. Silent when Windows refuses.
    void Create();
    void Destroy() noexcept;
    bool Exists() const noexcept { return m_window != nullptr; }
    HWND Window() const noexcept { return m_window; }

    /// See DebugList.
    int AddLine(std::string_view text, bool scroll) { return m_list.AddLine(text, scroll); }
    void ScrollTo(int index) noexcept { m_list.ScrollTo(index); }
    void Clear() noexcept { m_list.Clear(); }

    /// Whether the user may close the window; set before Create.
    bool Closable = true;

    // Called by the window procedure. Must not throw. Set before Create.
    /// For each ServeMessage, and when the time of ServeSoon has come. Windows runs message loops of its own while
    /// a menu is open, a window is moved or a scroll bar is held; this is how the owner's work goes on meanwhile.
    std::function<void()> ServeQueue = [] {};
    /// When such a loop, of the menu or of the frame, begins and ends.
    std::function<void()> OnLoopBegins = [] {};
    std::function<void()> OnLoopEnds = [] {};
    /// When the Windows session ends; Windows may end the process as soon as it returns.
    std::function<void()> OnSessionEnd = [] {};

    /// Without parameters; any thread may send it.
    static constexpr UINT ServeMessage = WM_APP;
    /// On: calls ServeQueue about every 10 ms while no other message waits.
    void ServeSoon(bool on) noexcept;

private:
    static constexpr UINT_PTR ServeTimer = DebugList::PaintTimer + 1;

    static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept;
    LRESULT Handle(UINT message, WPARAM wParam, LPARAM lParam) noexcept;
    bool OnCreate() noexcept;
    void OnDestroy() noexcept;
    void CancelModeOfChild() noexcept;
    void OnCommand(WORD id) noexcept;
    void SetHeld(bool held) noexcept;

    HWND m_window = nullptr;
    HMENU m_menuBar = nullptr;
    bool m_isServeTimerSet = false;
    DebugList m_list;
};
