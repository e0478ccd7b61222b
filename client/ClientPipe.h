// A client's end of a port pipe of the router.
#pragma once

#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// Open and Close are called while no other member runs; one thread may read while another one writes. A stop
/// signal ends every wait but Flush's. The router recreates an unconnected pipe every 50 ms: it may be missing or
/// busy for a moment, and may break right after it was opened; Open tries again until that is over.
class ClientPipe
{
public:
    enum class Outcome { Done, Stopped, TimedOut, Busy, Absent, Broken };
    using Timeout = std::chrono::milliseconds;

    /// `path` with its "\\.\pipe\". The events are borrowed; `stop` ends opening and reading.
    ClientPipe(std::wstring path, HANDLE stop, HANDLE stopWriting);
    ClientPipe(std::wstring path, HANDLE stop) : ClientPipe(std::move(path), stop, stop) {}
    ~ClientPipe() { Close(); }
    ClientPipe(const ClientPipe&) = delete;
    ClientPipe& operator=(const ClientPipe&) = delete;

    /// Tries until the pipe is open and stays so, for a moment at least. Done, Stopped, Busy (refused as busy for
    /// a second without a break: another client holds it) or Absent (never there, or never for long, within
    /// `timeout`). A pipe that is busy when `timeout` ends is tried until one of the two is certain.
    Outcome Open(Timeout timeout);

    /// One message. Done, Stopped, TimedOut (it is cancelled then) or Broken.
    Outcome Write(std::span<const std::uint8_t> message, Timeout timeout);

    /// The next message, of at most 65,535 bytes (of a pipe without messages: what there is). Done, Stopped,
    /// TimedOut (nothing is lost; the next Read gets it) or Broken.
    Outcome Read(std::vector<std::uint8_t>& message, Timeout timeout);

    /// Starts the next read, so that a message is the client's even if the router disconnects before the next
    /// Read.
    void ReadAhead();

    /// Returns when the router has read everything that was written. Has no timeout; CancelSynchronousIo ends it.
    /// Done, Stopped or Broken.
    Outcome Flush() noexcept;

    /// Drops what has not been read. The router flushes its end when a port stops and waits for its client to read
    /// or close; so close before the port is unregistered or its object released.
    void Close();

    /// False when Windows could not create what the waits need.
    bool IsUsable() const noexcept { return m_read.EventHandle() != nullptr && m_write.EventHandle() != nullptr; }
    bool IsOpen() const noexcept { return static_cast<bool>(m_pipe); }
    /// The Windows error of the last Busy, Absent or Broken of Open and Read, and of Write and Flush.
    DWORD Error() const noexcept { return m_error; }
    DWORD WriteError() const noexcept { return m_writeError; }

private:
    bool TryOpen();
    bool StaysOpen();
    bool StartReading();
    Outcome Complete(win32::OverlappedOperation& operation, HANDLE stop, DWORD& length, Timeout timeout,
                     DWORD& error);
    static Outcome Await(const win32::OverlappedOperation& operation, HANDLE stop, Timeout timeout);

    const std::wstring m_path;
    const HANDLE m_stop;
    const HANDLE m_stopWriting;
    std::vector<std::uint8_t> m_buffer;
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_read;
    win32::OverlappedOperation m_write;
    bool m_isReading = false;           // m_read is pending, or its message not taken; the reading thread's
    DWORD m_error = ERROR_SUCCESS;      // of the opening and reading thread
    DWORD m_writeError = ERROR_SUCCESS; // of the writing thread
};
