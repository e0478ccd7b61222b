#include "win32/OverlappedOperation.h"

namespace win32 {

OVERLAPPED* OverlappedOperation::Prepare() noexcept
{
    Cancel();
    m_overlapped = OVERLAPPED{};
    m_overlapped.hEvent = m_event.Get();
    m_refusal = ERROR_SUCCESS;
    return &m_overlapped;
}

void OverlappedOperation::Settle() noexcept
{
    m_awaited = IsRunning();
    if (m_awaited && m_signalledByHand) {
        m_event.Reset();
    }
    m_signalledByHand = false;
}

void OverlappedOperation::SignalEvent() noexcept
{
    m_awaited = true;
    m_signalledByHand = true;
    m_event.Set();
}

bool OverlappedOperation::Started(HANDLE file, BOOL completed) noexcept
{
    const DWORD error = completed != FALSE ? ERROR_SUCCESS : ::GetLastError();
    m_completedAtStart = completed != FALSE;
    m_awaited = error == ERROR_SUCCESS || error == ERROR_IO_PENDING;
    m_signalledByHand = false;
    if (m_awaited) {
        m_file = file;
        return true;
    }
    m_refusal = error;
    return false;
}

bool OverlappedOperation::Read(HANDLE file, void* buffer, DWORD length) noexcept
{
    OVERLAPPED* const overlapped = Prepare();
    return Started(file, ::ReadFile(file, buffer, length, nullptr, overlapped));
}

bool OverlappedOperation::Write(HANDLE file, const void* data, DWORD length) noexcept
{
    OVERLAPPED* const overlapped = Prepare();
    return Started(file, ::WriteFile(file, data, length, nullptr, overlapped));
}

bool OverlappedOperation::ConnectPipe(HANDLE pipe) noexcept
{
    OVERLAPPED* const overlapped = Prepare();
    return Started(pipe, ::ConnectNamedPipe(pipe, overlapped));
}

bool OverlappedOperation::Control(HANDLE device, DWORD code, const void* input, DWORD inputLength, void* output,
                                  DWORD outputLength) noexcept
{
    OVERLAPPED* const overlapped = Prepare();
    return Started(device, ::DeviceIoControl(device, code, const_cast<void*>(input), inputLength, output,
                                             outputLength, nullptr, overlapped));
}

bool OverlappedOperation::Finish(HANDLE file, DWORD& transferred) noexcept
{
    transferred = 0;
    if (m_refusal != ERROR_SUCCESS) {
        ::SetLastError(m_refusal);
        return false;
    }
    if (::GetOverlappedResult(file, &m_overlapped, &transferred, FALSE) != FALSE) {
        m_file = nullptr;
        return true;
    }
    const DWORD error = ::GetLastError();
    if (error != ERROR_IO_INCOMPLETE) {
        m_file = nullptr;
    }
    ::SetLastError(error);
    return false;
}

void OverlappedOperation::Cancel() noexcept
{
    if (m_file == nullptr) {
        return;
    }
    ::CancelIoEx(m_file, &m_overlapped);
    // The cancellation may lose against a completion; either way the record is ours again only after this.
    DWORD transferred = 0;
    ::GetOverlappedResult(m_file, &m_overlapped, &transferred, TRUE);
    m_file = nullptr;
}

} // namespace win32
