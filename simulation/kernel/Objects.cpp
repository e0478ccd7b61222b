#include "simulation/kernel/Objects.h"

#include "simulation/kernel/Call.h"
#include "simulation/kernel/Requests.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::uintptr_t HandleStep = 4;

Ref<Object>* Slot(HANDLE handle)
{
    std::vector<Ref<Object>>& handles = TheWorld().objects->handles;
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    if (value == 0 || value % HandleStep != 0 || value / HandleStep > handles.size()) {
        return nullptr;
    }
    Ref<Object>& slot = handles[value / HandleStep - 1];
    return slot ? &slot : nullptr;
}

} // namespace

HANDLE AddHandle(const Ref<Object>& object)
{
    std::vector<Ref<Object>>& handles = TheWorld().objects->handles;
    auto at = std::find(handles.begin(), handles.end(), nullptr);
    if (at == handles.end()) {
        at = handles.insert(at, nullptr);
    }
    *at = object;
    return reinterpret_cast<HANDLE>(HandleStep * (static_cast<std::uintptr_t>(at - handles.begin()) + 1));
}

bool IsNoHandle(HANDLE handle)
{
    return handle == nullptr || handle == INVALID_HANDLE_VALUE;
}

bool IsOpen(HANDLE handle)
{
    return Slot(handle) != nullptr;
}

Object& ObjectOf(HANDLE handle)
{
    Ref<Object>* const slot = Slot(handle);
    if (slot == nullptr) {
        Fault("a handle that is not open is used");
    }
    return **slot;
}

Object& ObjectOf(HANDLE handle, Object::Kind kind)
{
    Object& object = ObjectOf(handle);
    if (object.kind != kind) {
        Fault("a handle of another kind is used");
    }
    return object;
}

std::size_t OpenHandles()
{
    const std::vector<Ref<Object>>& handles = TheWorld().objects->handles;
    return handles.size() - static_cast<std::size_t>(std::count(handles.begin(), handles.end(), nullptr));
}

std::string WhatIsLeftOpen(const World& world)
{
    const std::vector<Ref<Object>>& handles = world.objects->handles;
    const auto open =
        static_cast<std::ptrdiff_t>(handles.size()) - std::count(handles.begin(), handles.end(), nullptr);
    if (open != 0) {
        return "handles left open: " + std::to_string(open);
    }
    return {};
}

} // namespace sim

using namespace sim;

BOOL CloseHandle(HANDLE handle)
{
    Call call("CloseHandle");
    Ref<Object>* const slot = Slot(handle);
    if (slot == nullptr) {
        Fault("a handle that is not open is closed");
    }
    const Ref<Object> object = *slot; // the slots may move meanwhile
    // A waiter that was woken and has yet to look again does that first.
    while (std::ranges::any_of(object->waiters,
                               [](const Fiber* fiber) { return fiber->state == Fiber::State::Runnable; }))
    {
        Point("CloseHandle");
    }
    if (!object->waiters.empty()) {
        Fault("a handle is closed that a thread waits for");
    }
    Slot(handle)->reset();
    object->OnClosed();
    return TRUE;
}

HANDLE CreateEventW(SECURITY_ATTRIBUTES* /*security*/, BOOL manual, BOOL set, const wchar_t* name)
{
    Call call("CreateEventW");
    if (name != nullptr) {
        Fault("a named event is not known here");
    }
    if (call.Fails({ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_SYSTEM_RESOURCES})) {
        return nullptr;
    }
    return AddHandle(Ref<Object>(new EventObject(manual != FALSE, set != FALSE)));
}

HANDLE CreateMutexW(SECURITY_ATTRIBUTES* /*security*/, BOOL owned, const wchar_t* name)
{
    Call call("CreateMutexW");
    if (name != nullptr || owned != FALSE) {
        Fault("such a mutex is not known here");
    }
    if (call.Fails({ERROR_NOT_ENOUGH_MEMORY})) {
        return nullptr;
    }
    return AddHandle(Ref<Object>(new MutexObject()));
}

BOOL ReleaseMutex(HANDLE handle)
{
    Call call("ReleaseMutex");
    auto& mutex = static_cast<MutexObject&>(ObjectOf(handle, Object::Kind::Mutex));
    if (mutex.owner != Current().id) {
        return call.Refuse(288); // ERROR_NOT_OWNER
    }
    if (--mutex.depth == 0) {
        mutex.owner = -1;
        Released(Current(), &mutex);
        Signal(mutex);
    }
    return TRUE;
}

BOOL SetEvent(HANDLE handle)
{
    Call call("SetEvent");
    if (IsNoHandle(handle)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    auto& event = static_cast<EventObject&>(ObjectOf(handle, Object::Kind::Event));
    event.set = true;
    Released(Current(), &event);
    Signal(event);
    Point("SetEvent done");
    return TRUE;
}

BOOL ResetEvent(HANDLE handle)
{
    Call call("ResetEvent");
    if (IsNoHandle(handle)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    static_cast<EventObject&>(ObjectOf(handle, Object::Kind::Event)).set = false;
    return TRUE;
}
