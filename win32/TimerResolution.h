// Asks Windows for a timer resolution of one millisecond.
#pragma once

#include "win32/Windows.h"

namespace win32 {

/// Holds the resolution while it is raised. One thread. Costs power: keep it short.
class TimerResolution
{
public:
    TimerResolution() noexcept = default;
    ~TimerResolution() { Restore(); }
    TimerResolution(const TimerResolution&) = delete;
    TimerResolution& operator=(const TimerResolution&) = delete;

    /// Notes the time for RestoreAfter; raised already it does no more. Without winmm.dll the resolution stays as
    /// it is.
    void Raise() noexcept;
    void Restore() noexcept;

    /// Restores it when the last Raise was more than `milliseconds` ago. No kernel call before that.
    void RestoreAfter(DWORD milliseconds) noexcept
    {
        if (m_raised && ::GetTickCount64() - m_lastRaise > milliseconds) {
            Restore();
        }
    }

private:
    bool m_raised = false;
    ULONGLONG m_lastRaise = 0; // tick count
};

} // namespace win32
