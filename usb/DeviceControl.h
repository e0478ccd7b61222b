// I/O controls that are waited for.
#pragma once

#include "usb/CallLimits.h"
#include "usb/Transfer.h"
#include "win32/Windows.h"

#include <cstdint>
#include <span>

namespace usb {

/// Sends `code` to a device that was opened for overlapped use, with `buffer` as input and output, and waits for
/// the driver's answer within `limits`. `returned`: the bytes it returned. False with GetLastError() on failure; a
/// device that is not open fails without a call. A request that is not answered in time is cancelled; one that the
/// driver keeps nevertheless goes to `kept`, and until it has completed the same code fails there with ERROR_BUSY.
/// Any thread, but one at a time for `kept`.
bool DeviceControl(HANDLE device, std::uint32_t code, std::span<std::uint8_t> buffer, DWORD& returned,
                   CallLimits& limits, AbandonedTransfers& kept) noexcept;

} // namespace usb
