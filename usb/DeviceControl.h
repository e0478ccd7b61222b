// I/O controls that are waited for.
#pragma once

#include "win32/Windows.h"

#include <cstdint>
#include <span>

namespace usb {

/// Sends `code` to a device that was opened for overlapped use, with `buffer` as input and output, and waits for the
/// driver's answer. `returned`: the bytes it returned. False with GetLastError() on failure; a device that is not
/// open fails without a call. A request that the driver has not answered after 12 s is cancelled. Any thread.
bool DeviceControl(HANDLE device, std::uint32_t code, std::span<std::uint8_t> buffer, DWORD& returned) noexcept;

} // namespace usb
