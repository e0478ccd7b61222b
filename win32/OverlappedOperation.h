// One overlapped operation on a file, pipe or device, as an object.
#pragma once

#include "win32/Event.h"
#include "win32/WaitSet.h"

namespace win32 {

/// Owns the OVERLAPPED and its manual-reset event. At most one operation is pending at a time; the buffer is
/// the caller's and must live as long as it is. The destructor cancels and waits, so neither the OVERLAPPED nor
/// a buffer declared before it can be written after it is gone. Used by one thread; the handle given to the last
/// start must stay open until Finish, Cancel or the destructor.
class OverlappedOperation
{
public:
    OverlappedOperation() noexcept : m_event(Event::Kind::ManualReset) {}
    ~OverlappedOperation() { Cancel(); }

    /// The event to wait for: Windows resets it at a start and sets it at the completion.
    HANDLE EventHandle() const noexcept { return m_event.Get(); }
    void ResetEvent() const noexcept { m_event.Reset(); }

    /// What a wait for the event would find, for WaitSet::Next. Once the result was taken: Never.
    Expectation Expected() const noexcept;

    /// Lets Expected() say Now for a start that was refused, until Finish takes the reason.
    void ReportRefusal() noexcept { m_isRefusalReported = m_refusal != ERROR_SUCCESS; }

    /// Start an operation; true when it is pending or already complete, false when Windows refused it. A
    /// refused operation never sets the event: Finish then reports the refusal.
    bool Read(HANDLE file, void* buffer, DWORD length) noexcept;
    bool Write(HANDLE file, const void* data, DWORD length) noexcept;
    /// A client that came before this call counts as a connect that was done at once; the event is set then.
    bool ConnectPipe(HANDLE pipe) noexcept;
    bool Control(HANDLE device, DWORD code, const void* input, DWORD inputLength, void* output,
                 DWORD outputLength) noexcept;

    /// Takes the result without waiting. False with GetLastError() when it failed, was refused or still runs. Once
    /// it has been taken, further calls give the same again.
    bool Finish(HANDLE file, DWORD& transferred) noexcept;

    /// True while an operation started by this object has not been seen complete.
    bool IsPending() const noexcept { return m_file != nullptr; }

    /// True when the pending operation has its result, whatever became of the event since. Does not ask the
    /// kernel.
    bool HasCompleted() const noexcept { return IsPending() && (m_completedAtStart || IsRecordFinal()); }

    /// True while the pending operation has no result yet. Does not ask the kernel.
    bool IsRunning() const noexcept { return IsPending() && !HasCompleted(); }

    /// True when the operation was complete as soon as it was started: the event is signalled already,
    /// and a wait for it would be a kernel call for nothing.
    bool CompletedAtStart() const noexcept { return IsPending() && m_completedAtStart; }

    /// Signals the event by hand: lets a wait loop handle a refused start like a failed completion.
    void SignalEvent() noexcept;

    /// Cancels what is pending and waits until Windows has released the OVERLAPPED and the buffer.
    void Cancel() noexcept;

    /// The same, and takes the result if it was not taken before: true when the operation succeeded, be it
    /// before the cancel or in spite of it.
    bool CancelAndFinish(DWORD& transferred) noexcept;

private:
    /// Zeroes the record but for its event.
    OVERLAPPED* Prepare() noexcept;
    bool Started(HANDLE file, BOOL completed) noexcept;
    void TakeResult(HANDLE file, BOOL wait) noexcept;

    /// A hint that saves a kernel call; only the event is a promise. "HasOverlappedIoCompleted macro": it means
    /// something only after a start that answered ERROR_IO_PENDING.
    bool IsRecordFinal() const noexcept { return HasOverlappedIoCompleted(&m_overlapped); }

    Event m_event;
    bool m_signalledByHand = false; // since the last start
    OVERLAPPED m_overlapped{};
    bool m_completedAtStart = false; // the last start
    HANDLE m_file = nullptr;         // borrowed; null when nothing is pending
    DWORD m_refusal = ERROR_SUCCESS; // why the last start was refused
    bool m_isRefusalReported = false;

    // The result, as far as it is known.
    bool m_succeeded = true;
    DWORD m_error = ERROR_SUCCESS;
    DWORD m_transferred = 0;
};

} // namespace win32
