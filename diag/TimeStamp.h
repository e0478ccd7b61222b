// The date and time at the front of a trace line.
#pragma once

#include "win32/Windows.h"

#include <cstddef>
#include <string>

/// Characters of a time stamp with its trailing blank.
inline constexpr std::size_t TimeStampLength = 25;

/// Month, day, year, then hours, minutes, seconds and milliseconds in brackets with a trailing blank:
/// [03-07-09 14:05:09:0042]. The milliseconds take four digits; readers of the log count on that.
/// `out` takes exactly TimeStampLength characters, without a terminator.
void WriteTimeStamp(char* out, const SYSTEMTIME& time) noexcept;

/// The same for the local time of now.
std::string TimeStamp();
