// Locks of Windows, and what to wait for under one.
#pragma once

#include "win32/ThreadSafety.h"
#include "win32/Windows.h"

namespace win32 {

/// Recursive, as Windows critical sections are. Owned by the object whose fields it guards.
class CAPABILITY("critical section") CriticalSection
{
public:
    CriticalSection() noexcept { ::InitializeCriticalSection(&m_section); }
    ~CriticalSection() { ::DeleteCriticalSection(&m_section); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void Enter() noexcept ACQUIRE() { ::EnterCriticalSection(&m_section); }
    void Leave() noexcept RELEASE() { ::LeaveCriticalSection(&m_section); }

    /// For waits of Windows that leave and enter it; see ConditionVariable.
    CRITICAL_SECTION* Native() noexcept { return &m_section; }

private:
    CRITICAL_SECTION m_section{};
};

/// Enters a lock for as long as it lives.
template <class Lock>
class SCOPED_CAPABILITY Scope
{
public:
    explicit Scope(Lock& lock) noexcept ACQUIRE(lock) : m_lock(lock) { m_lock.Enter(); }
    ~Scope() RELEASE() { m_lock.Leave(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

private:
    Lock& m_lock;
};

using SectionScope = Scope<CriticalSection>;

/// Leaves a section, which the calling thread has entered once, for as long as it lives.
class SCOPED_CAPABILITY SectionPause
{
public:
    explicit SectionPause(CriticalSection& section) noexcept RELEASE(section) : m_section(section)
    {
        m_section.Leave();
    }
    // What a scope did is undone: the analysis takes RELEASE for that in a destructor.
    ~SectionPause() RELEASE() { m_section.Enter(); }
    SectionPause(const SectionPause&) = delete;
    SectionPause& operator=(const SectionPause&) = delete;

private:
    CriticalSection& m_section;
};

/// Tells the threads that wait for it that what a section guards has changed. Waking and waiting stay out of the
/// kernel but for the sleep itself, which an event under the section would not.
class ConditionVariable
{
public:
    ConditionVariable() noexcept = default;
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    /// Leaves the section, which the calling thread has entered once, until woken, at most `milliseconds`, and
    /// enters it again. False when the time has passed. May return true for no reason.
    bool Wait(CriticalSection& section, DWORD milliseconds) noexcept REQUIRES(section)
    {
        return ::SleepConditionVariableCS(&m_condition, section.Native(), milliseconds) != FALSE;
    }
    void WakeOne() noexcept { ::WakeConditionVariable(&m_condition); }
    /// For threads that wait for different things under one section.
    void WakeAll() noexcept { ::WakeAllConditionVariable(&m_condition); }

private:
    CONDITION_VARIABLE m_condition = CONDITION_VARIABLE_INIT;
};

/// Shared by readers, exclusive to a writer. Not recursive.
class CAPABILITY("slim lock") SharedLock
{
public:
    void EnterShared() noexcept ACQUIRE_SHARED() { ::AcquireSRWLockShared(&m_lock); }
    void LeaveShared() noexcept RELEASE_SHARED() { ::ReleaseSRWLockShared(&m_lock); }
    /// Exclusive, as TryEnter and Leave.
    void Enter() noexcept ACQUIRE() { ::AcquireSRWLockExclusive(&m_lock); }
    bool TryEnter() noexcept TRY_ACQUIRE(true) { return ::TryAcquireSRWLockExclusive(&m_lock) != FALSE; }
    void Leave() noexcept RELEASE() { ::ReleaseSRWLockExclusive(&m_lock); }

private:
    SRWLOCK m_lock = SRWLOCK_INIT;
};

class SCOPED_CAPABILITY SharedScope
{
public:
    explicit SharedScope(SharedLock& lock) noexcept ACQUIRE_SHARED(lock) : m_lock(lock) { m_lock.EnterShared(); }
    ~SharedScope() RELEASE() { m_lock.LeaveShared(); }
    SharedScope(const SharedScope&) = delete;
    SharedScope& operator=(const SharedScope&) = delete;

private:
    SharedLock& m_lock;
};

using ExclusiveScope = Scope<SharedLock>;

} // namespace win32
