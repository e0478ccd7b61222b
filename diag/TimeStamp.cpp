#include "diag/TimeStamp.h"

#include <algorithm>
#include <array>
#include <cstdio>

void WriteTimeStamp(char* out, const SYSTEMTIME& time) noexcept
{
    std::array<char, 80> text{}; // as wide as the format could ever get
    std::snprintf(text.data(), text.size(), "[%02d-%02d-%02d %02d:%02d:%02d:%04d] ", time.wMonth, time.wDay,
                  time.wYear % 100, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
    std::copy_n(text.data(), TimeStampLength, out);
}

std::string TimeStamp()
{
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    std::string text(TimeStampLength, ' ');
    WriteTimeStamp(text.data(), now);
    return text;
}
