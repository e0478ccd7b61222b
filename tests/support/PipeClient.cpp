#include "tests/support/PipeClient.h"

namespace support {

bool PipeClient::TryOpen(std::string_view name)
{
    const std::string path = "\\\\.\\pipe\\" + std::string(name);
    m_pipe.Reset(::CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED, nullptr));
    if (!m_pipe) {
        m_error = ::GetLastError();
        return false;
    }
    DWORD mode = PIPE_READMODE_MESSAGE;
    if (!::SetNamedPipeHandleState(m_pipe.Get(), &mode, nullptr, nullptr)) {
        m_error = ::GetLastError();
        m_pipe.Reset();
        return false;
    }
    return true;
}

bool PipeClient::Open(std::string_view name, std::chrono::milliseconds timeout)
{
    return WaitUntil([&] { return TryOpen(name); }, timeout);
}

void PipeClient::Close()
{
    m_read.Cancel();
    m_write.Cancel();
    m_pipe.Reset();
}

bool PipeClient::Complete(win32::OverlappedOperation& operation, DWORD& length, std::chrono::milliseconds timeout)
{
    if (operation.IsPending() && !operation.CompletedAtStart() && !WaitFor(operation.EventHandle(), timeout)) {
        operation.Cancel();
        m_error = WAIT_TIMEOUT;
        return false;
    }
    if (operation.Finish(m_pipe.Get(), length)) {
        return true;
    }
    m_error = ::GetLastError();
    return false;
}

bool PipeClient::Write(std::string_view message, std::chrono::milliseconds timeout)
{
    m_write.Write(m_pipe.Get(), message.data(), static_cast<DWORD>(message.size()));
    DWORD length = 0;
    return Complete(m_write, length, timeout) && length == message.size();
}

std::optional<std::string> PipeClient::Read(std::chrono::milliseconds timeout)
{
    m_read.Read(m_pipe.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size()));
    DWORD length = 0;
    if (!Complete(m_read, length, timeout)) {
        return std::nullopt;
    }
    return std::string(m_buffer.data(), length);
}

DWORD PipeClient::Available() const
{
    DWORD available = 0;
    return ::PeekNamedPipe(m_pipe.Get(), nullptr, 0, nullptr, &available, nullptr) ? available : 0;
}

bool PipeClient::WaitForBreak(std::chrono::milliseconds timeout)
{
    while (Read(timeout)) {
    }
    return m_error != WAIT_TIMEOUT;
}

} // namespace support
