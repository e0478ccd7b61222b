#include "transport/Pauses.h"

#include "win32/Windows.h"

#include <chrono>

void SleepOneMillisecond() noexcept
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(1);
    do {
        ::Sleep(1);
    } while (Clock::now() < end);
}
