// Windows' clock of the highest resolution.
#pragma once

#include "win32/Windows.h"

#include <chrono>

namespace support {

/// Never runs backwards, counts from any moment. Any thread.
inline std::chrono::microseconds PerformanceTime() noexcept
{
    // "QueryPerformanceCounter function": neither call fails on any Windows since XP.
    LARGE_INTEGER frequency{};
    LARGE_INTEGER ticks{};
    ::QueryPerformanceFrequency(&frequency);
    ::QueryPerformanceCounter(&ticks);
    const auto seconds = ticks.QuadPart / frequency.QuadPart;
    const auto rest = ticks.QuadPart % frequency.QuadPart;
    return std::chrono::microseconds(seconds * 1'000'000 + rest * 1'000'000 / frequency.QuadPart);
}

} // namespace support
