// Waits: a wait is satisfied when the object is signalled, not when the waiter runs.
#include "simulation/kernel/Call.h"
#include "simulation/kernel/Objects.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"
#include "simulation/kernel/World.h"

#include <algorithm>

namespace sim {

namespace {

void LeaveAllWaits(Fiber& fiber)
{
    for (Object* const object : fiber.waits) {
        std::erase(object->waiters, &fiber);
    }
}

DWORD IndexOf(const Fiber& fiber, const Object& object)
{
    const auto at = std::find(fiber.waits.begin(), fiber.waits.end(), &object);
    return static_cast<DWORD>(at - fiber.waits.begin());
}

// The kernel returns the object that woke the thread, the page says the first of all that are signalled.
DWORD Satisfy(Fiber& fiber, Object& object)
{
    if (!TheWorld().switches.Take(Switch::WaitReturnsWaker)) {
        fiber.lateRecheck = true;
    }
    object.Consume(fiber);
    return WAIT_OBJECT_0 + IndexOf(fiber, object);
}

/// The first signalled object of lower index than `woken`: the one that woke is put back.
DWORD FirstOfAll(Fiber& fiber, DWORD woken)
{
    for (DWORD i = 0; i < woken; ++i) {
        Object& object = *fiber.waits[i];
        if (object.kind == Object::Kind::Event && object.IsSignalled(fiber)) {
            Object& waker = *fiber.waits[woken];
            if (waker.kind != Object::Kind::Event) {
                return woken;
            }
            static_cast<EventObject&>(waker).set = true;
            object.Consume(fiber);
            Signal(waker);
            return i;
        }
    }
    return woken;
}

// A mutex whose owner has ended is owned, and said to be abandoned.
DWORD ResultOf(Object& object, DWORD index)
{
    if (object.kind == Object::Kind::Mutex && static_cast<MutexObject&>(object).abandoned) {
        static_cast<MutexObject&>(object).abandoned = false;
        return WAIT_ABANDONED + index;
    }
    return WAIT_OBJECT_0 + index;
}

DWORD Poll(Fiber& self, DWORD count)
{
    for (DWORD i = 0; i < count; ++i) {
        if (self.waits[i]->IsSignalled(self)) {
            self.waits[i]->Consume(self);
            Acquired(self, self.waits[i]);
            HashWord(i);
            return ResultOf(*self.waits[i], i);
        }
    }
    return WAIT_TIMEOUT;
}

} // namespace

std::uint64_t TimeoutUs(DWORD milliseconds)
{
    if (milliseconds == INFINITE) {
        return NeverUs;
    }
    const std::uint64_t asked = std::uint64_t{milliseconds} * 1000;
    Switches& switches = TheWorld().switches;
    if (milliseconds != 0 && switches.Take(Switch::TimeoutEarly)) {
        return asked - std::min(asked, Random(TickUs));
    }
    // Not the pauses of a millisecond, which an answer may have to wait for.
    if (milliseconds > 2 && switches.Take(Switch::TimeoutLate)) {
        return asked + Random(4 * TickUs);
    }
    return asked;
}

void Signal(Object& object)
{
    const bool mayMiss =
        object.kind == Object::Kind::Event && static_cast<EventObject&>(object).manual && !object.waiters.empty();
    if (mayMiss && TheWorld().switches.Take(Switch::LateWaiterMisses)) {
        // A waiting thread looks again when it runs; it does not notice a reset until then.
        for (Fiber* const fiber : object.waiters) {
            if (fiber->state == Fiber::State::Blocked) {
                Wake(*fiber, WAIT_FAILED);
            }
        }
        return;
    }
    while (!object.waiters.empty()) {
        Fiber& fiber = *object.waiters[Random(object.waiters.size())];
        if (!object.IsSignalled(fiber)) {
            return;
        }
        const DWORD result = Satisfy(fiber, object);
        LeaveAllWaits(fiber);
        Wake(fiber, result);
    }
}

void SetByWindows(Object* event)
{
    if (event != nullptr) {
        static_cast<EventObject*>(event)->set = true;
        Signal(*event);
    }
}

DWORD WaitForAny(const HANDLE* handles, DWORD count, DWORD milliseconds, Object* last)
{
    Fiber& self = Current();
    self.waits.clear();
    for (DWORD i = 0; i < count; ++i) {
        if (IsNoHandle(handles[i])) {
            Call::Refuse(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
        self.waits.push_back(&ObjectOf(handles[i]));
    }
    if (last != nullptr) {
        self.waits.push_back(last);
        ++count;
    }
    const std::uint64_t timeout = milliseconds == 0 ? 0 : TimeoutUs(milliseconds);
    const std::uint64_t end = timeout == NeverUs ? NeverUs : NowUs() + timeout;
    for (;;) {
        if (const DWORD index = Poll(self, count); index != WAIT_TIMEOUT || milliseconds == 0) {
            return index;
        }
        for (Object* const object : self.waits) {
            object->waiters.push_back(&self);
        }
        self.lateRecheck = false;
        DWORD result = Block(end == NeverUs ? NeverUs : end - std::min(end, NowUs()), nullptr);
        LeaveAllWaits(self);
        if (result == WAIT_FAILED) {
            continue; // woken to look again
        }
        if (result < count) {
            if (self.lateRecheck) {
                result = FirstOfAll(self, result);
            }
            Acquired(self, self.waits[result]);
            result = ResultOf(*self.waits[result], result);
        }
        HashWord(result);
        return result;
    }
}

} // namespace sim

using namespace sim;

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    Call call("WaitForSingleObject");
    return WaitForAny(&handle, 1, milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds)
{
    Call call("WaitForMultipleObjects");
    if (all != FALSE) {
        Fault("a wait for all objects is not known here");
    }
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS) {
        call.Refuse(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    // "KeWaitForMultipleObjects routine": a thread has wait blocks for three objects, more need memory.
    if (count > 3 && call.Fails({ERROR_NO_SYSTEM_RESOURCES})) {
        return WAIT_FAILED;
    }
    return WaitForAny(handles, count, milliseconds);
}
