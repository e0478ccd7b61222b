// The screen as a person has it: a desktop with a notification area, a pointer and a keyboard.
#pragma once

#include "win32/Windows.h"

#include <string>

/// Pointer and keys are those of the display itself, moved from outside Windows (xdotool): what a program gets of
/// them has come the whole way. Each returns when the display has them, true when it took them; the effect comes
/// later, wait for that.
namespace desktop {

/// Whether there is a taskbar, without which there is no icon to point at.
bool HasTaskbar();

/// Where the icon stands that is the rightmost, or the only one, in the notification area. Wine paints the icons
/// onto the taskbar, where they have no windows of their own, in squares as high as it is.
RECT TrayIcon();

/// Text of the tooltip that is on screen; empty when none is.
std::wstring Tooltip();

POINT CenterOf(const RECT& area);
POINT CenterOf(HWND window);

bool PointAt(POINT place);
bool Click(POINT place);
bool DoubleClick(POINT place);
bool RightClick(POINT place);
bool Drag(POINT from, POINT to);
/// The two halves of Drag: the button is still down, and is released.
bool Grab(POINT from, POINT to);
bool Drop();
/// Keys by their names on the display ("Tab", "space", "alt+h"), one after the other.
bool Press(const std::string& keys);
/// Letters and digits.
bool Type(const std::string& text);

/// Waits until the keyboard is with a window whose title has `part`, also as the display sees it: keys that come
/// earlier go elsewhere.
bool WaitForKeyboard(const std::string& part);
/// Whether it is there now.
bool HasKeyboard(const std::string& part);

/// A top-level window of that class, or of that title if `title` is given, that can be seen; null when there is
/// none.
HWND VisibleWindow(const wchar_t* windowClass, const wchar_t* title = nullptr);

/// Takes a picture of the part `area` of the screen as NAME.png into the folder that the environment's
/// MORVANE_SCREENSHOTS names (a path outside Windows); nothing when it names none. True when the picture is there.
bool TakePicture(const std::string& name, const RECT& area);

} // namespace desktop

inline bool operator==(const RECT& a, const RECT& b)
{
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}
