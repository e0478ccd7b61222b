// A client's end of a pipe that keeps to no rule: opened for any direction, used in any order.
#pragma once

#include "tests/support/WaitUntil.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"

#include <string>

namespace hostile {

/// One thread. What is pending when it is destroyed is cancelled.
class RawPipe
{
public:
    /// Tries until it works or `timeout` is over.
    bool Open(const std::string& name, DWORD access, std::chrono::milliseconds timeout = support::DefaultTimeout)
    {
        const std::string path = R"(\\.\pipe\)" + name;
        return support::WaitUntil(
            [&] {
                m_pipe.Reset(
                    ::CreateFileA(path.c_str(), access, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
                return static_cast<bool>(m_pipe);
            },
            timeout);
    }
    /// Starts a write and does not wait for its end.
    void StartWriting(std::string bytes)
    {
        m_write.Cancel();
        m_written = std::move(bytes);
        m_write.Write(m_pipe.Get(), m_written.data(), static_cast<DWORD>(m_written.size()));
    }
    /// Whether the write ends well in time.
    bool HasWritten(std::chrono::milliseconds timeout = support::DefaultTimeout)
    {
        DWORD length = 0;
        return (m_write.CompletedAtStart() || support::WaitFor(m_write.EventHandle(), timeout)) &&
               m_write.Finish(m_pipe.Get(), length);
    }
    bool Write(std::string bytes)
    {
        StartWriting(std::move(bytes));
        return HasWritten();
    }
    /// Starts a read of so many bytes and does not wait for its end.
    void StartReading(std::size_t length)
    {
        m_read.Cancel();
        m_buffer.resize(length);
        m_read.Read(m_pipe.Get(), m_buffer.data(), static_cast<DWORD>(length));
    }
    /// How many bytes came, 0 when none did in time.
    DWORD HasRead(std::chrono::milliseconds timeout = support::DefaultTimeout)
    {
        DWORD length = 0;
        const bool done = m_read.CompletedAtStart() || support::WaitFor(m_read.EventHandle(), timeout);
        // A part of a message is a read that failed with ERROR_MORE_DATA.
        return done && (m_read.Finish(m_pipe.Get(), length) || ::GetLastError() == ERROR_MORE_DATA)
                 ? (length != 0 ? length : static_cast<DWORD>(m_buffer.size()))
                 : 0;
    }
    void Close()
    {
        m_read.Cancel();
        m_write.Cancel();
        m_pipe.Reset();
    }
    HANDLE Get() const { return m_pipe.Get(); }

private:
    std::string m_written;
    std::string m_buffer;
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_read;
    win32::OverlappedOperation m_write;
};

} // namespace hostile
