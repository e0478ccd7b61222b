#include "tests/unit/tools/FakePort.h"

#include "tests/support/WaitUntil.h"

#include <array>
#include <utility>

FakePort::FakePort(Player player, Conduct conduct) : m_player(std::move(player)), m_conduct(std::move(conduct))
{
    m_thread.Start([this] { Serve(); });
    m_served.Wait(INFINITE);
}

FakePort::~FakePort()
{
    m_stop.Set();
}

void FakePort::Serve()
{
    while (!m_stop.IsSet()) {
        const DWORD mode = (m_conduct.messages ? PIPE_TYPE_MESSAGE : PIPE_TYPE_BYTE) | PIPE_READMODE_BYTE;
        const win32::FileHandle pipe(::CreateNamedPipeW(Path().c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                                        mode, 1, 4096, 4096, 0, nullptr));
        m_served.Set();
        if (pipe && Connect(pipe.Get())) {
            ++m_connections;
            if (m_conduct.breaksAtFirst > 0) {
                --m_conduct.breaksAtFirst;
                ::DisconnectNamedPipe(pipe.Get());
            } else {
                Talk(pipe.Get());
            }
        }
    }
}

bool FakePort::Completed(win32::OverlappedOperation& operation, HANDLE pipe, DWORD& length)
{
    // The operation first: what a client has sent before the end is still played.
    const std::array<HANDLE, 2> either = {operation.EventHandle(), m_stop.Get()};
    return ::WaitForMultipleObjects(2, either.data(), FALSE, INFINITE) == WAIT_OBJECT_0 &&
           operation.Finish(pipe, length);
}

bool FakePort::Connect(HANDLE pipe)
{
    win32::OverlappedOperation connection;
    DWORD unused = 0;
    return connection.ConnectPipe(pipe) ? Completed(connection, pipe, unused)
                                        : ::GetLastError() == ERROR_PIPE_CONNECTED;
}

void FakePort::Talk(HANDLE pipe)
{
    std::vector<char> buffer(70'000);
    win32::OverlappedOperation reading;
    win32::OverlappedOperation writing;
    DWORD length = 0;
    const auto write = [&](const std::string& message) {
        return writing.Write(pipe, message.data(), static_cast<DWORD>(message.size())) &&
               Completed(writing, pipe, length);
    };
    if (!m_conduct.greeting.empty() && !write(m_conduct.greeting)) {
        return;
    }
    while (reading.Read(pipe, buffer.data(), static_cast<DWORD>(buffer.size())) &&
           Completed(reading, pipe, length))
    {
        const Replies replies = m_player(std::string(buffer.data(), length));
        if (++m_messages == m_conduct.breaksAtMessage) {
            return;
        }
        for (const std::string& reply : replies) {
            if (!write(reply)) {
                return;
            }
        }
    }
}

bool WriteMessage(HANDLE pipe, const std::string& text)
{
    win32::OverlappedOperation write;
    DWORD length = 0;
    return write.Write(pipe, text.data(), static_cast<DWORD>(text.size())) &&
           (write.CompletedAtStart() || support::WaitFor(write.EventHandle())) && write.Finish(pipe, length);
}
