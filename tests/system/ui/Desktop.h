// The screen as a person has it: a desktop with a notification area, a pointer and a keyboard.
#pragma once

#include "win32/Windows.h"

#include <string>

/// Pointer and keys are those of the display itself, moved from outside Windows (xdotool): what a program gets of
/// them has come the whole way. All of them return before the effect can be seen; wait for that.
namespace desktop {

/// Whether there is a taskbar, without which there is no icon to point at.
bool HasTaskbar();

/// Where the icon stands that is the rightmost, or the only one, in the notification area. Wine paints the icons onto
/// the taskbar, where they have no windows of their own, in squares as high as it is.
RECT TrayIcon();

/// Text of the tooltip that is on screen; empty when none is.
std::wstring Tooltip();

POINT CenterOf(const RECT& area);
POINT CenterOf(HWND window);

void PointAt(POINT place);
void Click(POINT place);
void DoubleClick(POINT place);
void RightClick(POINT place);
/// Keys by their names on the display ("Tab", "space", "Return"), one after the other.
void Press(const std::string& keys);

/// A top-level window of that class, or of that title if `title` is given, that can be seen; null when there is none.
HWND VisibleWindow(const wchar_t* windowClass, const wchar_t* title = nullptr);

/// Takes a picture of the part `area` of the screen as NAME.png into the folder that the environment's
/// MORVANE_SCREENSHOTS names (a path outside Windows); nothing when it names none. True when the picture is there.
bool TakePicture(const std::string& name, const RECT& area);

} // namespace desktop
