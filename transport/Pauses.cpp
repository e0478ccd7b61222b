#include "transport/Pauses.h"

#include "win32/PerformanceClock.h"

void SleepOneMillisecond() noexcept
{
    const std::chrono::microseconds end = win32::PerformanceTime() + std::chrono::milliseconds(1);
    do {
        ::Sleep(1);
    } while (win32::PerformanceTime() < end);
}
