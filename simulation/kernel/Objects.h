// What a handle refers to: events, mutexes, threads, and (elsewhere) ends of pipes, devices and files.
#pragma once

#include "simulation/kernel/Fiber.h"
#include "simulation/standin/windows.h"

#include <boost/intrusive_ptr.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace sim {

struct World;

struct Object
{
    enum class Kind { Event, Mutex, Thread, PipeEnd, Device, Driven, File, Token };

    explicit Object(Kind what) noexcept : kind(what) {}
    virtual ~Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    virtual bool IsSignalled(const Fiber& /*waiter*/) const { return false; }
    /// The wait of `waiter` is satisfied by this object.
    virtual void Consume(Fiber& /*waiter*/) {}
    /// Its last handle was closed; requests may keep the object itself.
    virtual void OnClosed() {}

    const Kind kind;
    int references = 0;
    std::vector<Fiber*> waiters;
};

inline void intrusive_ptr_add_ref(Object* object) noexcept
{
    ++object->references;
}

inline void intrusive_ptr_release(Object* object) noexcept
{
    if (--object->references == 0) {
        delete object;
    }
}

template <class Type>
using Ref = boost::intrusive_ptr<Type>;

struct EventObject final : Object
{
    EventObject(bool isManual, bool isSet) : Object(Kind::Event), manual(isManual), set(isSet) {}
    bool IsSignalled(const Fiber&) const override { return set; }
    void Consume(Fiber&) override { set = set && manual; }

    const bool manual;
    bool set;
};

struct MutexObject final : Object
{
    MutexObject() : Object(Kind::Mutex) {}
    bool IsSignalled(const Fiber& waiter) const override { return owner < 0 || owner == waiter.id; }
    void Consume(Fiber& waiter) override
    {
        owner = waiter.id;
        ++depth;
    }

    int owner = -1, depth = 0;
    bool abandoned = false;
};

struct ThreadObject final : Object
{
    explicit ThreadObject(Fiber& runs) : Object(Kind::Thread), fiber(runs) {}
    bool IsSignalled(const Fiber&) const override { return ended; }

    Fiber& fiber;
    bool ended = false;
};

/// Handles are indices, the lowest free one first: a stale handle hits the object of another owner.
struct Objects
{
    std::vector<Ref<Object>> handles;
};

HANDLE AddHandle(const Ref<Object>& object);
/// Null and INVALID_HANDLE_VALUE, which every call refuses.
bool IsNoHandle(HANDLE handle);
bool IsOpen(HANDLE handle);
/// A handle that is not open is a fault: the product is not to use one.
Object& ObjectOf(HANDLE handle);
/// The wrong kind is a fault too.
Object& ObjectOf(HANDLE handle, Object::Kind kind);

/// `object` has become signalled: satisfies the waits that it can.
void Signal(Object& object);
/// As Windows does at the end of a request: the event is set, if there is one.
void SetByWindows(Object* event);
/// A wait for any of the objects, as WaitForMultipleObjects, and for `last`, unless it is null.
DWORD WaitForAny(const HANDLE* handles, DWORD count, DWORD milliseconds, Object* last = nullptr);
/// How long Windows takes for a time-out of so many milliseconds.
std::uint64_t TimeoutUs(DWORD milliseconds);

/// The thread of `fiber` has run to its end.
void EndThread(Fiber& fiber);

/// After a run: what was not closed or completed, or empty.
std::string WhatIsLeftOpen(const World& world);
std::size_t OpenHandles();

} // namespace sim
