// Conversions between wide text and the process's ANSI code page.
#pragma once

#include "win32/Windows.h"

#include <string>
#include <string_view>

namespace win32 {

std::string ToAnsi(std::wstring_view text);
std::wstring FromAnsi(std::string_view text);

} // namespace win32
