// The calls of Windows that the modelled sources make, as objects of the model checker: events, critical sections,
// slim locks and condition variables, as Windows documents them. Waits that may time out are not modelled.
#pragma once

#include "tests/relacy/Relacy.h"

using BOOL = int;
using DWORD = unsigned long;
struct ModelledEvent : rl::generic_event, relacytest::Unwatched
{};
using HANDLE = ModelledEvent*;

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(-1))

inline HANDLE CreateEventW(void* /*security*/, BOOL manualReset, BOOL signalled, const wchar_t* /*name*/)
{
    auto* const event = new ModelledEvent;
    event->init(manualReset != FALSE, signalled != FALSE, RL_INFO);
    return event;
}
inline BOOL CloseHandle(HANDLE event)
{
    event->deinit(RL_INFO);
    delete event;
    return TRUE;
}
inline BOOL SetEvent(HANDLE event)
{
    event->set(RL_INFO);
    return TRUE;
}
inline BOOL ResetEvent(HANDLE event)
{
    event->reset(RL_INFO);
    return TRUE;
}
inline DWORD WaitForSingleObject(HANDLE event, DWORD milliseconds)
{
    const bool test = milliseconds == 0;
    return event->wait(test, false, RL_INFO) == rl::sema_wakeup_reason_success ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

struct CRITICAL_SECTION
{
    rl::generic_mutex<CRITICAL_SECTION> mutex;
};
inline void InitializeCriticalSection(CRITICAL_SECTION* section)
{
    section->mutex.init(false, true, false, false, RL_INFO);
}
inline void DeleteCriticalSection(CRITICAL_SECTION* section)
{
    section->mutex.deinit(RL_INFO);
}
inline void EnterCriticalSection(CRITICAL_SECTION* section)
{
    section->mutex.lock_exclusive(RL_INFO);
}
inline void LeaveCriticalSection(CRITICAL_SECTION* section)
{
    section->mutex.unlock_exclusive(RL_INFO);
}

// Windows needs no calls to make and destroy the next two.
struct SRWLOCK
{
    SRWLOCK(int /*SRWLOCK_INIT*/) { mutex.init(true, false, false, false, RL_INFO); }
    ~SRWLOCK() { mutex.deinit(RL_INFO); }
    SRWLOCK(const SRWLOCK&) = delete;
    SRWLOCK& operator=(const SRWLOCK&) = delete;

    rl::generic_mutex<SRWLOCK> mutex;
};
#define SRWLOCK_INIT 0
inline void AcquireSRWLockShared(SRWLOCK* lock)
{
    lock->mutex.lock_shared(RL_INFO);
}
inline void ReleaseSRWLockShared(SRWLOCK* lock)
{
    lock->mutex.unlock_shared(RL_INFO);
}
inline void AcquireSRWLockExclusive(SRWLOCK* lock)
{
    lock->mutex.lock_exclusive(RL_INFO);
}
inline BOOL TryAcquireSRWLockExclusive(SRWLOCK* lock)
{
    return lock->mutex.try_lock_exclusive(RL_INFO) ? TRUE : FALSE;
}
inline void ReleaseSRWLockExclusive(SRWLOCK* lock)
{
    lock->mutex.unlock_exclusive(RL_INFO);
}

struct CONDITION_VARIABLE
{
    CONDITION_VARIABLE(int /*CONDITION_VARIABLE_INIT*/) { condition.init(true, RL_INFO); }
    ~CONDITION_VARIABLE() { condition.deinit(RL_INFO); }
    CONDITION_VARIABLE(const CONDITION_VARIABLE&) = delete;
    CONDITION_VARIABLE& operator=(const CONDITION_VARIABLE&) = delete;

    rl::condvar<CONDITION_VARIABLE> condition;
};
#define CONDITION_VARIABLE_INIT 0
inline BOOL SleepConditionVariableCS(CONDITION_VARIABLE* condition, CRITICAL_SECTION* section, DWORD)
{
    condition->condition.wait(section->mutex, false, RL_INFO);
    return TRUE;
}
inline void WakeConditionVariable(CONDITION_VARIABLE* condition)
{
    condition->condition.notify_one(RL_INFO);
}
inline void WakeAllConditionVariable(CONDITION_VARIABLE* condition)
{
    condition->condition.notify_all(RL_INFO);
}
