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

    /// Called by the window procedure when the Windows session ends; Windows may end the process as soon as it returns.
    /// Must not throw. Set before Create.
    std::function<void()> OnSessionEnd;

private:
    static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept;
    LRESULT Handle(UINT message, WPARAM wParam, LPARAM lParam) noexcept;
    bool OnCreate() noexcept;
    void OnDestroy() noexcept;
    void OnCommand(WORD id) noexcept;
    void SetHeld(bool held) noexcept;
    void BringToView() noexcept;
    void SavePlacement() const noexcept;

    HWND m_window = nullptr;
    HMENU m_menuBar = nullptr;
    DebugList m_list;
};
