#include "win32/OverlappedOperation.h"

namespace win32 {

OVERLAPPED* OverlappedOperation::Prepare() noexcept
{
    Cancel();
    m_overlapped = OVERLAPPED{};
    m_overlapped.hEvent = m_event.Get();
    m_refusal = ERROR_SUCCESS;
    m_transferred = 0;
    return &m_overlapped;
}

void OverlappedOperation::SignalEvent() noexcept
{
    m_signalledByHand = true;
    m_event.Set();
}

Expectation OverlappedOperation::Expected() const noexcept
{
    if (m_isRefusalReported) {
        return Expectation::Now;
    }
    if (!IsPending()) {
        return Expectation::Never;
    }
    if (m_completedAtStart) {
        return Expectation::Now;
    }
    return IsRecordFinal() ? Expectation::Maybe : Expectation::NotYet;
}

// What was done at once has its result here, by the return value and the count of the start itself. Whether the
// event is set then, and whether GetOverlappedResult knows of it, Microsoft's pages leave open ("Named Pipe Server
// Using Overlapped I/O", "ReadFile function").
bool OverlappedOperation::Started(HANDLE file, BOOL completed) noexcept
{
    const DWORD error = completed != FALSE ? ERROR_SUCCESS : ::GetLastError();
    m_completedAtStart = completed != FALSE;
    m_signalledByHand = false;
    m_succeeded = error == ERROR_SUCCESS || error == ERROR_IO_PENDING;
    if (!m_completedAtStart) {
        m_transferred = 0; // what the start left there means nothing
    }
    m_error = error;
    if (m_succeeded) {
        m_file = file;
        return true;
    }
    m_refusal = error;
    return false;
}

bool OverlappedOperation::Read(HANDLE file, void* buffer, DWORD length) noexcept
{
    OVERLAPPED* const overlapped = Prepare();
    return Started(file, ::ReadFile(file, buffer, length, &m_transferred, overlapped));
}

bool OverlappedOperation::Write(HANDLE file, const void* data, DWORD length) noexcept
{
    OVERLAPPED* const overlapped = Prepare();
    return Started(file, ::WriteFile(file, data, length, &m_transferred, overlapped));
}

bool OverlappedOperation::ConnectPipe(HANDLE pipe) noexcept
{
    OVERLAPPED* const overlapped = Prepare();
    const BOOL completed = ::ConnectNamedPipe(pipe, overlapped);
    // "ConnectNamedPipe function": ERROR_PIPE_CONNECTED is a good connection, for which no event is set. Set by
    // hand it serves the threads that wait for it; the case is rare.
    if (!completed && ::GetLastError() == ERROR_PIPE_CONNECTED) {
        m_event.Set();
        return Started(pipe, TRUE);
    }
    return Started(pipe, completed);
}

bool OverlappedOperation::Control(HANDLE device, DWORD code, const void* input, DWORD inputLength, void* output,
                                  DWORD outputLength) noexcept
{
    OVERLAPPED* const overlapped = Prepare();
    return Started(device, ::DeviceIoControl(device, code, const_cast<void*>(input), inputLength, output,
                                             outputLength, &m_transferred, overlapped));
}

void OverlappedOperation::TakeResult(HANDLE file, BOOL wait) noexcept
{
    m_transferred = 0;
    m_succeeded = ::GetOverlappedResult(file, &m_overlapped, &m_transferred, wait) != FALSE;
    m_error = m_succeeded ? ERROR_SUCCESS : ::GetLastError();
}

bool OverlappedOperation::Finish(HANDLE file, DWORD& transferred) noexcept
{
    m_isRefusalReported = false;
    if (m_file != nullptr && !m_completedAtStart) {
        TakeResult(file, FALSE);
    }
    if (m_succeeded || m_error != ERROR_IO_INCOMPLETE) {
        m_file = nullptr;
    }
    transferred = m_transferred;
    ::SetLastError(m_error);
    return m_succeeded;
}

void OverlappedOperation::Cancel() noexcept
{
    m_isRefusalReported = false;
    if (m_file == nullptr) {
        return;
    }
    if (!m_completedAtStart) {
        ::CancelIoEx(m_file, &m_overlapped);
        if (m_signalledByHand) {
            m_event.Reset(); // or the wait below would end on that signal, before the operation has
        }
        // The cancellation may lose against a completion; either way the record is ours again only after this.
        TakeResult(m_file, TRUE);
    }
    m_file = nullptr;
}

bool OverlappedOperation::CancelAndFinish(DWORD& transferred) noexcept
{
    const bool wasPending = IsPending();
    Cancel();
    transferred = wasPending && m_succeeded ? m_transferred : 0;
    return wasPending && m_succeeded;
}

} // namespace win32
