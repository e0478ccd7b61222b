#include "simulation/kernel/Requests.h"

#include "simulation/kernel/Call.h"
#include "simulation/kernel/Devices.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"
#include "simulation/kernel/World.h"

#include <algorithm>

namespace sim {

namespace {

Requests& All()
{
    return *TheWorld().requests;
}

// The thread that started a request sees record and event change together; others may look in between.
void SetLateEvents(const OVERLAPPED* record)
{
    std::list<Requests::Late>& late = All().late;
    for (auto at = late.begin(); at != late.end();) {
        if (at->record == record && at->fiber == Current().id) {
            const Ref<Object> event = at->event;
            at = late.erase(at);
            SetByWindows(event.get());
        } else {
            ++at;
        }
    }
}

void SetEventLater(const Request& request)
{
    All().late.push_back({request.record, request.event, request.fiber});
    Defer([] {
        if (!All().late.empty()) {
            const Ref<Object> event = All().late.front().event;
            All().late.pop_front();
            SetByWindows(event.get());
        }
    });
}

} // namespace

Request Accept(OVERLAPPED* record, Object& file, void* buffer, DWORD length)
{
    if (record == nullptr) {
        Fault("an overlapped request has no record");
    }
    SetLateEvents(record);
    Request request{record, nullptr, Ref<Object>(&file), static_cast<std::uint8_t*>(buffer), length, Current().id};
    request.number = ++All().accepted;
    for (const Lent& lent : All().pending) {
        if (lent.record == record) {
            Fault("the record of a pending request is used for another one");
        }
    }
    if (record->hEvent != nullptr) {
        request.event = Ref<Object>(&ObjectOf(record->hEvent, Object::Kind::Event));
        static_cast<EventObject&>(*request.event).set = false;
        Released(Current(), request.event.get());
    }
    // A thread that sees the end of the request sees what was done before its start, and nothing of the thread
    // that completed it.
    Released(Current(), record);
    record->Internal = STATUS_PENDING;
    record->InternalHigh = 0;
    All().pending.push_back({record, request.buffer, length, request.fiber, &file});
    return request;
}

void LendBlock(Request& request, std::uint8_t* block, DWORD length)
{
    request.block = block;
    All().pending.push_back({request.record, block, length, request.fiber, request.file.get()});
}

void Complete(const Request& request, DWORD error, DWORD count)
{
    std::erase_if(All().pending, [&](const Lent& lent) { return lent.record == request.record; });
    request.record->InternalHigh = count;
    request.record->Internal = error;
    if (request.event && request.fiber != Current().id && TheWorld().switches.Take(Switch::EventAfterRecord)) {
        SetEventLater(request);
    } else {
        SetByWindows(request.event.get());
    }
}

BOOL AnswerStart(const Request& request, DWORD* count)
{
    OVERLAPPED& record = *request.record;
    Switches& switches = TheWorld().switches;
    if (record.Internal == STATUS_PENDING || switches.Take(Switch::PendingThoughDone)) {
        return Call::Refuse(ERROR_IO_PENDING);
    }
    if (record.Internal != ERROR_SUCCESS) {
        return Call::Refuse(static_cast<DWORD>(record.Internal)); // a warning: it is complete nevertheless
    }
    if (count != nullptr) {
        *count = static_cast<DWORD>(record.InternalHigh);
    }
    if (request.event && switches.Take(Switch::EventUnsetAtOnce)) {
        static_cast<EventObject&>(*request.event).set = false;
    }
    if (switches.Take(Switch::RecordPendingAtOnce)) {
        record.Internal = STATUS_PENDING;
    }
    return TRUE;
}

BOOL RefuseStart(const Request& request, DWORD error, bool byDevice)
{
    std::erase_if(All().pending, [&](const Lent& lent) { return lent.record == request.record; });
    Switches& switches = TheWorld().switches;
    if (byDevice && switches.Take(Switch::RefusalInRecord)) {
        request.record->Internal = error;
        if (switches.Take(Switch::RefusalSetsEvent)) {
            SetByWindows(request.event.get());
        }
    }
    return Call::Refuse(error);
}

bool IsLent(const void* memory, std::size_t length) noexcept
{
    const auto* const begin = static_cast<const std::uint8_t*>(memory);
    const auto overlaps = [=](const void* lent, std::size_t size) {
        const auto* const at = static_cast<const std::uint8_t*>(lent);
        return at < begin + length && begin < at + size;
    };
    const std::vector<Lent>& pending = All().pending;
    return std::any_of(pending.begin(), pending.end(), [&](const Lent& lent) {
        return overlaps(lent.record, sizeof(OVERLAPPED)) ||
               (lent.buffer != nullptr && overlaps(lent.buffer, lent.length));
    });
}

void ForgetRecords(const void* memory, std::size_t length) noexcept
{
    const auto* const begin = static_cast<const std::uint8_t*>(memory);
    for (Requests::Late& late : All().late) {
        const auto* const at = reinterpret_cast<const std::uint8_t*>(late.record);
        if (begin <= at && at < begin + length) {
            late.record = nullptr;
        }
    }
}

bool HasRequests(const Fiber& fiber)
{
    const std::vector<Lent>& pending = All().pending;
    return std::any_of(pending.begin(), pending.end(), [&](const Lent& lent) { return lent.fiber == fiber.id; });
}

void CancelRequestsOf(const Fiber& fiber)
{
    const std::vector<Lent> pending = All().pending;
    for (const Lent& lent : pending) {
        if (lent.fiber != fiber.id) {
            continue;
        }
        if (lent.file->kind == Object::Kind::Device) {
            CancelDeviceRequest(*lent.file, lent.record, false);
        } else if (lent.file->kind == Object::Kind::Driven) {
            TheWorld().devices->driver->Cancel(*lent.file, lent.record);
        } else {
            CancelPipeRequest(*lent.file, lent.record, true);
        }
    }
}

} // namespace sim

using namespace sim;

bool StandInHasCompleted(const OVERLAPPED* record) noexcept
{
    Call call("HasOverlappedIoCompleted");
    SetLateEvents(record);
    const bool completed = record->Internal != STATUS_PENDING;
    if (completed) {
        Acquired(Current(), record);
    }
    return completed;
}

BOOL GetOverlappedResult(HANDLE file, OVERLAPPED* record, DWORD* transferred, BOOL wait)
{
    Call call("GetOverlappedResult");
    SetLateEvents(record);
    if (record->Internal == STATUS_PENDING) {
        if (wait == FALSE) {
            return Call::Refuse(ERROR_IO_INCOMPLETE);
        }
        const HANDLE event = record->hEvent != nullptr ? record->hEvent : file;
        WaitForAny(&event, 1, INFINITE);
        if (record->Internal == STATUS_PENDING) {
            Fault("GetOverlappedResult ends although the request is pending: another thread has set its event");
        }
    }
    Acquired(Current(), record);
    *transferred = static_cast<DWORD>(record->InternalHigh);
    return record->Internal == ERROR_SUCCESS ? TRUE : Call::Refuse(static_cast<DWORD>(record->Internal));
}

BOOL CancelIoEx(HANDLE file, OVERLAPPED* record)
{
    Call call("CancelIoEx");
    if (IsNoHandle(file)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    Object& object = ObjectOf(file);
    const bool found = object.kind == Object::Kind::Driven ? TheWorld().devices->driver->Cancel(object, record)
                     : object.kind == Object::Kind::Device ? CancelDeviceRequest(object, record, false)
                                                           : CancelPipeRequest(object, record, false);
    return found ? TRUE : Call::Refuse(ERROR_NOT_FOUND);
}
