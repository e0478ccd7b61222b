// Critical sections, condition variables, slim locks.
#include "simulation/kernel/Call.h"
#include "simulation/kernel/Objects.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"
#include "simulation/kernel/World.h"

using namespace sim;

namespace {

constexpr std::uint32_t SectionMagic = 0x5EC71077;

template <class Lock>
void BlockOn(Lock& lock)
{
    ++lock.waiting;
    Block(NeverUs, &lock);
    --lock.waiting;
}

// No hand-over: the first to run gets it, the one that left it included.
template <class Lock>
void WakeAll(const Lock& lock)
{
    if (lock.waiting == 0) {
        return;
    }
    ForBlocked(&lock, [](Fiber& fiber) {
        Wake(fiber, WAIT_OBJECT_0);
        return true;
    });
}

// Readers see what writers did, not each other.
void TakeExclusive(SRWLOCK& lock)
{
    lock.owner = Current().id + 1;
    Acquired(Current(), &lock);
    Acquired(Current(), &lock.shared);
}

void CheckSection(const CRITICAL_SECTION& section)
{
    if (section.magic != SectionMagic) {
        Fault("a critical section is used that is none, or none any more");
    }
}

void Enter(CRITICAL_SECTION& section)
{
    const int self = Current().id;
    CheckSection(section);
    while (section.owner >= 0 && section.owner != self) {
        BlockOn(section);
    }
    CheckSection(section);
    section.owner = self;
    ++section.depth;
    Acquired(Current(), &section);
}

} // namespace

void InitializeCriticalSection(CRITICAL_SECTION* section)
{
    *section = {SectionMagic, -1, 0, 0};
}

void DeleteCriticalSection(CRITICAL_SECTION* section)
{
    Call call("DeleteCriticalSection");
    CheckSection(*section);
    if (section->owner >= 0) {
        Fault("a critical section is deleted that a thread holds");
    }
    section->magic = 0;
}

void EnterCriticalSection(CRITICAL_SECTION* section)
{
    Call call("EnterCriticalSection");
    Enter(*section);
}

void LeaveCriticalSection(CRITICAL_SECTION* section)
{
    Call call("LeaveCriticalSection");
    CheckSection(*section);
    if (section->owner != Current().id) {
        Fault("a critical section is left by a thread that does not hold it");
    }
    if (--section->depth == 0) {
        Released(Current(), section);
        section->owner = -1;
        WakeAll(*section);
        Point("LeaveCriticalSection done");
    }
}

BOOL SleepConditionVariableCS(CONDITION_VARIABLE* condition, CRITICAL_SECTION* section, DWORD milliseconds)
{
    Call call("SleepConditionVariableCS");
    CheckSection(*section);
    if (section->owner != Current().id || section->depth != 1) {
        Fault("a condition is waited for without its section, or with it entered twice");
    }
    section->depth = 0;
    section->owner = -1;
    Released(Current(), section);
    WakeAll(*section);
    Switches& switches = TheWorld().switches;
    DWORD result = WAIT_OBJECT_0;
    if (!switches.Take(Switch::ConditionWakesForNothing)) {
        result = Block(TimeoutUs(milliseconds), condition);
    }
    HashWord(result);
    Enter(*section);
    return result == WAIT_OBJECT_0 ? TRUE : Call::Refuse(ERROR_TIMEOUT);
}

void WakeConditionVariable(CONDITION_VARIABLE* condition)
{
    Call call("WakeConditionVariable");
    ForBlocked(condition, [](Fiber& fiber) {
        // The wake may go to a thread whose time has just passed.
        const bool swallowed = fiber.deadline != NeverUs && fiber.deadline < NowUs() + TickUs &&
                               TheWorld().switches.Take(Switch::ConditionSwallowsWake);
        Wake(fiber, swallowed ? WAIT_TIMEOUT : WAIT_OBJECT_0);
        return false;
    });
    Point("WakeConditionVariable done");
}

void WakeAllConditionVariable(CONDITION_VARIABLE* condition)
{
    Call call("WakeAllConditionVariable");
    ForBlocked(condition, [](Fiber& fiber) {
        Wake(fiber, WAIT_OBJECT_0);
        return true;
    });
    Point("WakeAllConditionVariable done");
}

void AcquireSRWLockShared(SRWLOCK* lock)
{
    Call call("AcquireSRWLockShared");
    while (lock->owner != 0 || lock->writersWaiting > 0) {
        BlockOn(*lock);
    }
    ++lock->shared;
    Acquired(Current(), lock);
}

void ReleaseSRWLockShared(SRWLOCK* lock)
{
    Call call("ReleaseSRWLockShared");
    if (lock->shared <= 0) {
        Fault("a slim lock is left that is not held");
    }
    Released(Current(), &lock->shared);
    --lock->shared;
    WakeAll(*lock);
    Point("ReleaseSRWLockShared done");
}

void AcquireSRWLockExclusive(SRWLOCK* lock)
{
    Call call("AcquireSRWLockExclusive");
    if (lock->owner == Current().id + 1) {
        Fault("a slim lock is taken by the thread that holds it");
    }
    ++lock->writersWaiting;
    while (lock->owner != 0 || lock->shared > 0) {
        BlockOn(*lock);
    }
    --lock->writersWaiting;
    TakeExclusive(*lock);
}

BOOL TryAcquireSRWLockExclusive(SRWLOCK* lock)
{
    Call call("TryAcquireSRWLockExclusive");
    if (lock->owner != 0 || lock->shared != 0) {
        return FALSE;
    }
    TakeExclusive(*lock);
    return TRUE;
}

void ReleaseSRWLockExclusive(SRWLOCK* lock)
{
    Call call("ReleaseSRWLockExclusive");
    if (lock->owner != Current().id + 1) {
        Fault("a slim lock is left by a thread that does not hold it");
    }
    Released(Current(), lock);
    lock->owner = 0;
    WakeAll(*lock);
    Point("ReleaseSRWLockExclusive done");
}
