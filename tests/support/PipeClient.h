// A client's end of a named pipe, for tests.
#pragma once

#include "tests/support/WaitUntil.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// Opened overlapped; reads whole messages. One thread. A failed step returns false or none, and Error() tells
/// why.
class PipeClient
{
public:
    PipeClient() = default;

    /// Opens "\\.\pipe\" + `name` at once; false when it is not there or busy.
    bool TryOpen(std::string_view name);

    /// The same, tried again until it works or `timeout` is over.
    bool Open(std::string_view name, std::chrono::milliseconds timeout = DefaultTimeout);

    bool IsOpen() const noexcept { return static_cast<bool>(m_pipe); }
    void Close();

    bool Write(std::string_view message, std::chrono::milliseconds timeout = DefaultTimeout);

    /// One message, or none when the pipe broke or `timeout` is over (Error() is then WAIT_TIMEOUT).
    std::optional<std::string> Read(std::chrono::milliseconds timeout = DefaultTimeout);

    /// How many bytes wait to be read; 0 when the pipe is broken.
    DWORD Available() const;

    /// Whether the other end closes or breaks the pipe within `timeout`.
    bool WaitForBreak(std::chrono::milliseconds timeout = DefaultTimeout);

    DWORD Error() const noexcept { return m_error; }
    HANDLE Handle() const noexcept { return m_pipe.Get(); }

private:
    bool Complete(win32::OverlappedOperation& operation, DWORD& length, std::chrono::milliseconds timeout);

    std::vector<char> m_buffer = std::vector<char>(70'000);
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_read;
    win32::OverlappedOperation m_write;
    DWORD m_error = ERROR_SUCCESS;
};

} // namespace support
