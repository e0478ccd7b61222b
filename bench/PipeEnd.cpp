#include "bench/PipeEnd.h"

#include "tests/support/UniqueName.h"
#include "tests/support/WaitUntil.h"

namespace bench {

bool PipeEnd::Open(const std::wstring& name, std::chrono::milliseconds timeout)
{
    const std::wstring path = support::PipePath(name);
    return support::WaitUntil(
        [&] {
            m_pipe.Reset(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                       FILE_FLAG_OVERLAPPED, nullptr));
            return static_cast<bool>(m_pipe);
        },
        timeout);
}

bool PipeEnd::Make(const std::wstring& name, DWORD type)
{
    m_pipe.Reset(::CreateNamedPipeW(support::PipePath(name).c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                    type | PIPE_READMODE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr));
    return static_cast<bool>(m_pipe);
}

bool PipeEnd::AwaitClient()
{
    DWORD unused = 0;
    if (!m_read.ConnectPipe(m_pipe.Get())) {
        return ::GetLastError() == ERROR_PIPE_CONNECTED;
    }
    return Complete(m_read, unused);
}

void PipeEnd::DropClient()
{
    m_read.Cancel();
    m_write.Cancel();
    ::DisconnectNamedPipe(m_pipe.Get());
}

void PipeEnd::ReadMessages()
{
    DWORD mode = PIPE_READMODE_MESSAGE;
    ::SetNamedPipeHandleState(m_pipe.Get(), &mode, nullptr, nullptr);
}

bool PipeEnd::Complete(win32::OverlappedOperation& operation, DWORD& length)
{
    while (!operation.Finish(m_pipe.Get(), length)) {
        if (::GetLastError() != ERROR_IO_INCOMPLETE) {
            return false;
        }
        ::WaitForSingleObject(operation.EventHandle(), INFINITE);
    }
    return true;
}

bool PipeEnd::Write(std::span<const std::uint8_t> bytes)
{
    DWORD length = 0;
    return m_write.Write(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size())) &&
           Complete(m_write, length);
}

std::span<const std::uint8_t> PipeEnd::Read()
{
    DWORD length = 0;
    if (!m_read.Read(m_pipe.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())) ||
        !Complete(m_read, length))
    {
        return {};
    }
    return {m_buffer.data(), length};
}

std::span<const std::uint8_t> PipeEnd::ReadWithin(std::chrono::milliseconds timeout)
{
    if (!m_read.Read(m_pipe.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size()))) {
        return {};
    }
    if (!support::WaitFor(m_read.EventHandle(), timeout)) {
        m_read.Cancel();
        return {};
    }
    DWORD length = 0;
    return Complete(m_read, length) ? std::span<const std::uint8_t>(m_buffer.data(), length)
                                    : std::span<const std::uint8_t>();
}

bool PipeEnd::ReadExactly(std::size_t count)
{
    while (count != 0) {
        const std::size_t length = Read().size();
        if (length == 0 || length > count) {
            return false;
        }
        count -= length;
    }
    return true;
}

void PipeEnd::Close()
{
    m_read.Cancel();
    m_write.Cancel();
    m_pipe.Reset();
}

} // namespace bench
