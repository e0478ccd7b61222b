// Overlapped requests: what every file, pipe and device has in common.
#pragma once

#include "simulation/kernel/Objects.h"
#include "simulation/standin/windows.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <vector>

namespace sim {

/// One accepted request. Windows owns record and buffers until it has completed.
struct Request
{
    OVERLAPPED* record = nullptr;
    Ref<Object> event;
    Ref<Object> file;
    std::uint8_t* buffer = nullptr; // written to, unless it is a write
    DWORD length = 0;
    int fiber = 0;                 // that started it
    std::uint8_t* block = nullptr; // a transfer's, for the driver's statuses
    DWORD before = 0;              // bytes before the data, which a buffered transfer counts as well
    std::uint64_t number = 0;      // of all requests of the run; a record may be that of another one later
};

/// A pending request's memory, which must neither be freed nor used for another request.
struct Lent
{
    const OVERLAPPED* record;
    const std::uint8_t* buffer;
    DWORD length;
    int fiber;
    Object* file;
};

struct Requests
{
    std::vector<Lent> pending;
    /// Records that are final and whose event is still to be set.
    struct Late
    {
        const OVERLAPPED* record;
        Ref<Object> event;
        int fiber;
    };
    std::list<Late> late;
    std::uint64_t accepted = 0;
};

/// Takes the record: its event is reset, it says pending. A record that is still pending is a fault.
Request Accept(OVERLAPPED* record, Object& file, void* buffer, DWORD length);
/// Lends the driver the block of `length` bytes in which it tells the statuses of a transfer.
void LendBlock(Request& request, std::uint8_t* block, DWORD length);
/// The request is over: count, status, event, in that order.
void Complete(const Request& request, DWORD error, DWORD count);
/// What a start answers whose request was accepted and may have completed since.
BOOL AnswerStart(const Request& request, DWORD* count);
/// What a start answers that is refused: the ways in which Windows leaves record and event.
BOOL RefuseStart(const Request& request, DWORD error, bool byDevice);

bool IsLent(const void* memory, std::size_t length) noexcept;
/// Memory is freed: a later record at the same place is another one, wherever the heap puts it.
void ForgetRecords(const void* memory, std::size_t length) noexcept;
bool HasRequests(const Fiber& fiber);
/// A thread's end cancels what it started.
void CancelRequestsOf(const Fiber& fiber);

// Of the kinds of files.
bool CancelPipeRequest(Object& end, const OVERLAPPED* record, bool mustEnd);
bool CancelDeviceRequest(Object& device, const OVERLAPPED* record, bool mustEnd);

} // namespace sim
