#include "tools/RouterLog/log/LogTime.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace routerlog {

namespace {

constexpr std::int64_t MsPerSecond = 1000;
constexpr std::int64_t MsPerDay = 86'400 * MsPerSecond;

/// Two digits at `at`; -1 when they are none.
int TwoDigits(std::string_view text, std::size_t at) noexcept
{
    return IsDigit(text[at]) && IsDigit(text[at + 1]) ? (text[at] - '0') * 10 + (text[at + 1] - '0') : -1;
}

std::optional<std::int64_t> DayNumber(int year, int month, int day) noexcept
{
    const std::chrono::year_month_day date{std::chrono::year(2000 + year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (year < 0 || month < 0 || day < 0 || !date.ok()) {
        return std::nullopt;
    }
    constexpr std::chrono::sys_days epoch =
        std::chrono::year_month_day{std::chrono::year(2000), std::chrono::January, std::chrono::day(1)};
    return (std::chrono::sys_days(date) - epoch).count();
}

/// "MM?DD?YY hh:mm:ss" at `at`, with `separator` between the parts of the date.
std::optional<LogTime> ParseDateAndTime(std::string_view text, std::size_t at, char separator) noexcept
{
    if (text[at + 2] != separator || text[at + 5] != separator || text[at + 8] != ' ' || text[at + 11] != ':' ||
        text[at + 14] != ':')
    {
        return std::nullopt;
    }
    const auto day = DayNumber(TwoDigits(text, at + 6), TwoDigits(text, at), TwoDigits(text, at + 3));
    const int hour = TwoDigits(text, at + 9);
    const int minute = TwoDigits(text, at + 12);
    const int second = TwoDigits(text, at + 15);
    if (!day || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 60) {
        return std::nullopt;
    }
    return *day * MsPerDay + ((hour * 60 + minute) * 60 + second) * MsPerSecond;
}

struct Civil
{
    std::chrono::year_month_day date;
    int hour, minute, second, millisecond;
};

Civil CivilOf(LogTime time)
{
    std::int64_t day = time / MsPerDay;
    std::int64_t rest = time % MsPerDay;
    if (rest < 0) {
        rest += MsPerDay;
        --day;
    }
    constexpr std::chrono::sys_days epoch =
        std::chrono::year_month_day{std::chrono::year(2000), std::chrono::January, std::chrono::day(1)};
    return {epoch + std::chrono::days(day), static_cast<int>(rest / 3'600'000),
            static_cast<int>(rest / 60'000 % 60), static_cast<int>(rest / 1000 % 60),
            static_cast<int>(rest % 1000)};
}

} // namespace

std::optional<LogTime> ParseStamp(std::string_view line) noexcept
{
    if (line.size() < StampLength || line[0] != '[' || line[18] != ':' || line[23] != ']' || line[24] != ' ') {
        return std::nullopt;
    }
    const int high = TwoDigits(line, 19);
    const int low = TwoDigits(line, 21);
    if (high < 0 || high > 9 || low < 0) {
        return std::nullopt;
    }
    const auto time = ParseDateAndTime(line, 1, '-');
    return time ? std::optional(*time + LogTime{high} * 100 + low) : std::nullopt;
}

std::optional<LogTime> ParseSkippedStamp(std::string_view stamp) noexcept
{
    return stamp.size() == 17 ? ParseDateAndTime(stamp, 0, '/') : std::nullopt;
}

std::string FormatTime(LogTime time)
{
    const Civil civil = CivilOf(time);
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02u %02d:%02d:%02d.%03d",
                  static_cast<int>(civil.date.year()), static_cast<unsigned>(civil.date.month()),
                  static_cast<unsigned>(civil.date.day()), civil.hour, civil.minute, civil.second,
                  civil.millisecond);
    return text.data();
}

std::string FormatTimeOfDay(LogTime time)
{
    return FormatTime(time).substr(11);
}

std::string FormatDuration(std::int64_t milliseconds)
{
    const std::int64_t seconds = std::llabs(milliseconds) / 1000;
    std::array<char, 64> text{};
    if (seconds < 10) {
        std::snprintf(text.data(), text.size(), "%.3f s", static_cast<double>(milliseconds) / 1000);
    } else if (seconds < 120) {
        std::snprintf(text.data(), text.size(), "%.1f s", static_cast<double>(milliseconds) / 1000);
    } else if (seconds < 7200) {
        std::snprintf(text.data(), text.size(), "%d min %d s", static_cast<int>(seconds / 60),
                      static_cast<int>(seconds % 60));
    } else if (seconds < 172'800) {
        std::snprintf(text.data(), text.size(), "%d h %d min", static_cast<int>(seconds / 3600),
                      static_cast<int>(seconds / 60 % 60));
    } else {
        std::snprintf(text.data(), text.size(), "%lld d %d h", static_cast<long long>(seconds / 86'400),
                      static_cast<int>(seconds / 3600 % 24));
    }
    return text.data();
}

} // namespace routerlog
