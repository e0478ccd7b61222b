#include "usb/DeviceControl.h"

#include "win32/Event.h"

namespace usb {

namespace {

// Longer than the driver itself gives any control request; only a driver that has lost the request needs it.
constexpr DWORD Patience = 12000;

} // namespace

bool DeviceControl(HANDLE device, std::uint32_t code, std::span<std::uint8_t> buffer, DWORD& returned) noexcept
{
    returned = 0;
    if (device == INVALID_HANDLE_VALUE) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    const win32::Event completed(win32::Event::Kind::ManualReset);
    OVERLAPPED overlapped{};
    overlapped.hEvent = completed.Get();
    void* const data = buffer.empty() ? nullptr : buffer.data();
    const DWORD length = static_cast<DWORD>(buffer.size());
    if (::DeviceIoControl(device, code, data, length, data, length, nullptr, &overlapped) == FALSE) {
        if (::GetLastError() != ERROR_IO_PENDING) {
            return false;
        }
        if (!completed.Wait(Patience)) {
            ::CancelIoEx(device, &overlapped);
        }
    }
    return ::GetOverlappedResult(device, &overlapped, &returned, TRUE) != FALSE;
}

} // namespace usb
