// The server end of one port's named pipe, from its creation to its client's connection and its end.
#pragma once

#include "ports/PortSettings.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"
#include "win32/OwnUserSecurity.h"

#include <memory>
#include <string>

/// Used by the port's worker thread alone. Traces on the port's channel.
class PipeServer
{
public:
    /// `settings` is borrowed and must outlive the server. Throws std::bad_alloc.
    explicit PipeServer(const PortSettings& settings);

    /// Creates the pipe, which must not exist, and begins to wait for a client. Failing leaves no pipe.
    void Create();

    /// Whether a client has connected. Only after the event; false leaves the reason in GetLastError().
    bool FinishConnect()
    {
        DWORD unused = 0;
        return m_connect.Finish(m_pipe.Get(), unused);
    }

    /// Flushes, throws the client out and closes the pipe. FlushFileBuffers blocks until the client has read
    /// everything or is gone. Reads and writes on it must have been cancelled before.
    void Close();

    /// Null or invalid while there is no pipe.
    HANDLE Pipe() const noexcept { return m_pipe.Get(); }
    bool Exists() const noexcept { return static_cast<bool>(m_pipe); }

    /// For trace texts: "\\.\pipe\" and the name, with bytes below 0x20 as \xNN.
    const char* ShownName() const noexcept { return m_shownName.c_str(); }

    HANDLE ConnectEvent() const noexcept { return m_connect.EventHandle(); }
    win32::Expectation ExpectConnect() const noexcept { return m_connect.Expected(); }

private:
    const PortSettings& m_settings;
    const std::string m_fullName;
    const std::string m_shownName;
    const std::unique_ptr<win32::OwnUserSecurity> m_security; // null: the pipe has the default security
    int m_creations = 0;
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_connect; // after the pipe: it cancels and waits before the pipe is closed
};
