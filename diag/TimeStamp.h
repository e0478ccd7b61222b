// The date and time at the front of a trace line.
#pragma once

#include "win32/Windows.h"

#include <cstddef>
#include <string>

/// Characters of a time stamp with its trailing blank.
inline constexpr std::size_t TimeStampLength = 25;

/// Writes TimeStampLength characters without a terminator: [03-07-09 14:05:09:0042] with month, day and year, and
/// a trailing blank. Readers of the log count on the four digits of the milliseconds.
void WriteTimeStamp(char* out, const SYSTEMTIME& time) noexcept;

/// The same for the local time of now.
std::string TimeStamp();
