// The list of lines that fills the debug window.
#pragma once

#include "win32/Windows.h"

#include <string_view>

/// A sorted list box. Used on the window's thread alone. It is painted at most every PaintInterval, since painting
/// costs a hundred times what a line does.
class DebugList
{
public:
    static constexpr int MaxLines = 10000;
    static constexpr DWORD PaintInterval = 50; // ms
    static constexpr UINT_PTR PaintTimer = 1;

    /// Makes the list over the whole client area of `parent`, which from then on calls Paint when its PaintTimer
    /// comes and ResetState when it is destroyed.
    bool Create(HWND parent) noexcept;
    void ResetState() noexcept;
    void Resize(int width, int height) noexcept;
    void Paint() noexcept;
    HWND Window() const noexcept { return m_list; }

    /// Appends a line of 8-bit text (a list that has MaxLines is emptied first) and scrolls to it if `scroll` says
    /// so. Returns its place in the list, which is sorted by text; -1 when there is no list.
    int AddLine(std::string_view text, bool scroll);

    /// Brings the line into view, unless the list is held or `index` is not above 0.
    void ScrollTo(int index) noexcept;

    void Clear() noexcept;

    /// A held list takes lines but does not scroll. Outlives the list box.
    bool Held = false;

private:
    void PaintLater() noexcept;
    void PaintIfDue() noexcept;

    HWND m_parent = nullptr;
    HWND m_list = nullptr;
    bool m_dirty = false;  // changed since it was painted; painting is off and the timer runs
    int m_wantedTop = -1;  // line to bring into view at the next painting; -1 for none
    DWORD m_lastPaint = 0; // ticks
    DWORD m_interval = 0;  // ms
};
