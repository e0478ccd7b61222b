// Asks Windows for a timer resolution of one millisecond.
#pragma once

namespace win32 {

/// Holds the resolution while it is raised. One thread. Costs the whole machine power: keep it short.
class TimerResolution
{
public:
    TimerResolution() noexcept = default;
    ~TimerResolution() { Restore(); }
    TimerResolution(const TimerResolution&) = delete;
    TimerResolution& operator=(const TimerResolution&) = delete;

    /// Without winmm.dll the resolution stays as it is.
    void Raise() noexcept;
    void Restore() noexcept;

private:
    bool m_raised = false;
};

} // namespace win32
