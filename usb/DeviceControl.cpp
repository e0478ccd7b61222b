#include "usb/DeviceControl.h"

#include "win32/Event.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

namespace usb {

namespace {

// Of the time for stopping, what stays for requests that were cancelled in it.
constexpr ULONGLONG CancelReserveMs = 200;

bool Wait(HANDLE event, DWORD milliseconds) noexcept
{
    return ::WaitForSingleObject(event, milliseconds) == WAIT_OBJECT_0;
}

/// The request, which outlives the call when the driver keeps it. Null when memory runs out.
std::unique_ptr<Transfer> NewRequest(std::uint32_t code, std::span<const std::uint8_t> buffer,
                                     const win32::Event& completed) noexcept
{
    try {
        auto request = std::make_unique<Transfer>();
        request->control = code;
        request->buffer.assign(buffer.begin(), buffer.end());
        request->overlapped.hEvent = completed.Get();
        return request;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

/// Takes the result; false with GetLastError() on failure.
bool Finish(HANDLE device, Transfer& request, std::span<std::uint8_t> buffer, DWORD& returned) noexcept
{
    request.pending = false;
    if (::GetOverlappedResult(device, &request.overlapped, &returned, FALSE) == FALSE) {
        return false;
    }
    std::copy(request.buffer.begin(), request.buffer.end(), buffer.begin());
    return true;
}

} // namespace

CallLimits& CallLimits::WithoutStop() noexcept
{
    static CallLimits limits;
    return limits;
}

bool CallLimits::IsStopping() noexcept
{
    if (m_stopEnd.load() != 0) {
        return true;
    }
    if (m_stop == nullptr || !Wait(m_stop, 0)) {
        return false;
    }
    ULONGLONG none = 0;
    m_stopEnd.compare_exchange_strong(none, ::GetTickCount64() + StopMs);
    return true;
}

DWORD CallLimits::LeftForStop(ULONGLONG reserved) const noexcept
{
    const ULONGLONG now = ::GetTickCount64() + reserved;
    const ULONGLONG end = m_stopEnd.load();
    return end > now ? static_cast<DWORD>(std::min<ULONGLONG>(end - now, StopMs)) : 0;
}

bool CallLimits::AwaitAnswer(HANDLE completed) noexcept
{
    if (!IsStopping()) {
        const std::array<HANDLE, 2> handles{completed, m_stop};
        const DWORD count = m_stop != nullptr ? 2 : 1;
        const DWORD result = ::WaitForMultipleObjects(count, handles.data(), FALSE, m_answerMs);
        if (result == WAIT_OBJECT_0 || !IsStopping()) {
            return result == WAIT_OBJECT_0;
        }
    }
    return Wait(completed, LeftForStop(CancelReserveMs));
}

bool DeviceControl(HANDLE device, std::uint32_t code, std::span<std::uint8_t> buffer, DWORD& returned,
                   CallLimits& limits, AbandonedTransfers& kept) noexcept
{
    returned = 0;
    if (device == INVALID_HANDLE_VALUE) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    kept.Sweep();
    if (kept.HasControl(code)) {
        ::SetLastError(ERROR_BUSY);
        return false;
    }
    // "DeviceIoControl function": an overlapped call needs an event. Without one nothing reports the end, and the
    // record would be destroyed while the driver still owns it.
    const win32::Event completed(win32::Event::Kind::ManualReset);
    std::unique_ptr<Transfer> request =
        completed.Exists() ? NewRequest(code, buffer, completed) : std::unique_ptr<Transfer>();
    if (!request) {
        ::SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return false;
    }
    void* const data = buffer.empty() ? nullptr : request->buffer.data();
    const DWORD length = static_cast<DWORD>(buffer.size());
    if (::DeviceIoControl(device, code, data, length, data, length, &returned, &request->overlapped) != FALSE) {
        std::copy(request->buffer.begin(), request->buffer.end(), buffer.begin());
        return true;
    }
    if (::GetLastError() != ERROR_IO_PENDING) {
        returned = 0;
        return false;
    }
    request->pending = true;
    if (!limits.AwaitAnswer(completed.Get())) {
        ::CancelIoEx(device, &request->overlapped);
        if (!limits.AwaitCancelled(completed.Get())) {
            kept.Add(std::move(request));
            ::SetLastError(ERROR_TIMEOUT);
            return false;
        }
    }
    return Finish(device, *request, buffer, returned);
}

} // namespace usb
