// Times of the log: the local time of the PC that wrote it. Portable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace routerlog {

constexpr bool IsDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

/// Milliseconds since 2000-01-01 00:00 of the PC's local time. May go backwards from line to line: clocks are set.
using LogTime = std::int64_t;

/// "[MM-DD-YY hh:mm:ss:mmmm] ", as each stamped line begins.
inline constexpr std::size_t StampLength = 25;

/// The time at the beginning of `line`; none when there is no stamp or when it is no date.
std::optional<LogTime> ParseStamp(std::string_view line) noexcept;

/// The time of the skipped-packet log, "MM/DD/YY hh:mm:ss".
std::optional<LogTime> ParseSkippedStamp(std::string_view stamp) noexcept;

/// "2026-11-21 14:05:09.042".
std::string FormatTime(LogTime time);
/// "14:05:09.042".
std::string FormatTimeOfDay(LogTime time);
/// "0.042 s", "12.3 s", "3 min 20 s", "2 h 5 min", "3 d 4 h".
std::string FormatDuration(std::int64_t milliseconds);

} // namespace routerlog
