// A condition that wakes every thread that waits for it.
#pragma once

#include "win32/CriticalSection.h"

namespace win32 {

/// As ConditionVariable, but for several waiters that wait for different things under one section.
class Broadcast
{
public:
    Broadcast() noexcept = default;
    Broadcast(const Broadcast&) = delete;
    Broadcast& operator=(const Broadcast&) = delete;

    bool Wait(CriticalSection& section, DWORD milliseconds) noexcept REQUIRES(section)
    {
        return ::SleepConditionVariableCS(&m_condition, section.Native(), milliseconds) != FALSE;
    }
    void WakeAll() noexcept { ::WakeAllConditionVariable(&m_condition); }

private:
    CONDITION_VARIABLE m_condition = CONDITION_VARIABLE_INIT;
};

} // namespace win32
