// Asks Windows for a timer resolution of one millisecond.
#pragma once

#include "win32/Windows.h"

#include <timeapi.h>

namespace win32 {

/// Holds the resolution while it is raised. One thread. Costs the whole machine power: keep it short.
class TimerResolution
{
public:
    TimerResolution() noexcept = default;
    ~TimerResolution() { Restore(); }
    TimerResolution(const TimerResolution&) = delete;
    TimerResolution& operator=(const TimerResolution&) = delete;

    void Raise() noexcept
    {
        if (!m_raised) {
            m_raised = ::timeBeginPeriod(1) == TIMERR_NOERROR;
        }
    }

    void Restore() noexcept
    {
        if (m_raised) {
            ::timeEndPeriod(1);
            m_raised = false;
        }
    }

private:
    bool m_raised = false;
};

} // namespace win32
