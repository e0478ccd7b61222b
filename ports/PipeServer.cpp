#include "ports/PipeServer.h"

#include "trace/Trace.h"

#include <array>
#include <cstdio>

namespace {

// Duplex, overlapped; messages towards the client, bytes from it, blocking mode. By design the router reads bytes:
// a client message longer than the read buffer arrives in pieces instead of failing.
constexpr DWORD OpenMode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED;
constexpr DWORD PipeMode = PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE | PIPE_WAIT;

// A name with line breaks in it must not look like further lines of the log.
std::string Printable(const std::string& name)
{
    std::string shown;
    for (const char character : name) {
        if (static_cast<unsigned char>(character) < 0x20) {
            std::array<char, 5> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02X", static_cast<unsigned>(character));
            shown += escape.data();
        } else {
            shown += character;
        }
    }
    return shown;
}

} // namespace

PipeServer::PipeServer(const PortSettings& settings)
    : m_settings(settings),
      m_fullName("\\\\.\\pipe\\" + settings.pipeName),
      m_shownName(Printable(m_fullName)),
      m_security(settings.options.restrictPipe ? std::make_unique<win32::OwnUserSecurity>() : nullptr)
{
}

void PipeServer::Create()
{
    const std::int32_t channel = m_settings.address.deviceType;
    if (m_security && !*m_security) {
        // Rather no pipe than one that everyone may open.
        Trace(channel, trace::DevicePipe, "(%s) Pipe cannot be restricted (%d), not created", ShownName(),
              static_cast<int>(m_security->Error()));
        return;
    }
    const auto outSize = static_cast<DWORD>(m_settings.readBufferSize);
    const auto inSize = static_cast<DWORD>(m_settings.writeBufferSize);
    const DWORD mode = m_security ? PipeMode | PIPE_REJECT_REMOTE_CLIENTS : PipeMode;
    m_pipe.Reset(::CreateNamedPipeA(m_fullName.c_str(), OpenMode, mode, 1, outSize, inSize, 0,
                                    m_security ? m_security->Attributes() : nullptr));
    Trace(channel, trace::DevicePipe, "(%s) Pipe Created %d th time, waiting for connection...", ShownName(),
          m_creations++);
    if (m_pipe) {
        // A refusal is passed over: the next recreation tries again.
        m_connect.ConnectPipe(m_pipe.Get());
    }
}

void PipeServer::Close()
{
    m_connect.Cancel();
    ::FlushFileBuffers(m_pipe.Get());
    ::DisconnectNamedPipe(m_pipe.Get());
    m_pipe.Reset();
}
