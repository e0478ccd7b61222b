// Requests to the driver's remote control.
#pragma once

#include "win32/Handle.h"

#include <chrono>
#include <cstdint>
#include <span>

namespace instrumentbus {

/// The open remote control; none when the driver does not run.
win32::FileHandle OpenRemote();

/// Sends `code` and waits for the answer, of which `answered` bytes came into `answer`. Returns the error code;
/// ERROR_OPERATION_ABORTED when `timeout` was over first. Any thread.
DWORD RemoteCall(HANDLE remote, std::uint32_t code, std::span<const std::uint8_t> input,
                 std::span<std::uint8_t> answer, std::uint32_t& answered, std::chrono::milliseconds timeout);

} // namespace instrumentbus
