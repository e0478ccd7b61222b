#include "tests/windows/Row.h"

#include "tests/support/UniqueName.h"
#include "tests/support/WaitUntil.h"
#include "win32/Event.h"
#include "win32/Handle.h"
#include "win32/Thread.h"

#include <aclapi.h>

#include <array>
#include <atomic>
#include <stdexcept>

namespace windowscheck {

namespace {

/// A pipe as the router makes it, without a client.
class Pipe
{
public:
    explicit Pipe(DWORD furtherMode = 0)
        : m_name(support::PipePath(support::UniqueName(L"WindowsCheck"))),
          m_server(::CreateNamedPipeW(m_name.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                      PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE | PIPE_WAIT | furtherMode, 1, 4096,
                                      4096, 0, nullptr))
    {
        if (!m_server) {
            throw std::runtime_error("no pipe, error " + std::to_string(::GetLastError()));
        }
    }
    void Open(DWORD flags = 0)
    {
        m_client.Reset(::CreateFileW(m_name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                     flags, nullptr));
        if (!m_client) {
            throw std::runtime_error("the pipe does not open, error " + std::to_string(::GetLastError()));
        }
    }
    HANDLE Server() const { return m_server.Get(); }
    HANDLE Client() const { return m_client.Get(); }
    void CloseClient() { m_client.Reset(); }
    void CloseServer() { m_server.Reset(); }

private:
    std::wstring m_name;
    win32::FileHandle m_server;
    win32::FileHandle m_client;
};

/// The record of one operation, its event unsignalled.
struct Record
{
    Record() { overlapped.hEvent = event.Get(); }
    win32::Event event{win32::Event::Kind::ManualReset};
    OVERLAPPED overlapped{};
    bool IsSet() const { return ::WaitForSingleObject(event.Get(), 0) == WAIT_OBJECT_0; }
};

std::string Error(DWORD error)
{
    return "error " + std::to_string(error);
}

Found ReadOfAListeningPipe()
{
    const Pipe pipe;
    Record record;
    std::array<char, 8> buffer{};
    const BOOL done = ::ReadFile(pipe.Server(), buffer.data(), buffer.size(), nullptr, &record.overlapped);
    const DWORD error = ::GetLastError();
    return HoldsIf(!done && error == ERROR_PIPE_LISTENING && !record.IsSet(),
                   Error(error) + (record.IsSet() ? ", the event is set" : ", the event is not set"));
}

Found ClientBeforeTheConnect()
{
    Pipe pipe;
    pipe.Open();
    Record record;
    const BOOL done = ::ConnectNamedPipe(pipe.Server(), &record.overlapped);
    const DWORD error = ::GetLastError();
    return HoldsIf(!done && error == ERROR_PIPE_CONNECTED && !record.IsSet(),
                   Error(error) + (record.IsSet() ? ", the event is set" : ", the event is not set"));
}

Found CompletedAtOnce()
{
    Pipe pipe;
    pipe.Open();
    Record record;
    DWORD written = 0;
    const BOOL done = ::WriteFile(pipe.Server(), "12345", 5, &written, &record.overlapped);
    return HoldsIf(done && written == 5,
                   "WriteFile returned " + std::to_string(done) + " with " + std::to_string(written) + " bytes");
}

Found Cancelled()
{
    Pipe pipe;
    pipe.Open();
    Record record;
    std::array<char, 8> buffer{};
    ::ReadFile(pipe.Server(), buffer.data(), buffer.size(), nullptr, &record.overlapped);
    ::CancelIoEx(pipe.Server(), &record.overlapped);
    DWORD length = 0;
    const BOOL done = ::GetOverlappedResult(pipe.Server(), &record.overlapped, &length, TRUE);
    const DWORD error = ::GetLastError();
    return HoldsIf(!done && error == ERROR_OPERATION_ABORTED && record.IsSet(), Error(error));
}

/// Starts a flush of what the client has not read; whether it blocked until `release`, and ended then.
Found Flush(const std::function<void(Pipe&, win32::Thread&)>& release)
{
    Pipe pipe;
    pipe.Open();
    Record record;
    ::WriteFile(pipe.Server(), "12345", 5, nullptr, &record.overlapped);
    win32::Event done(win32::Event::Kind::ManualReset);
    win32::Thread flusher;
    flusher.Start([&] {
        ::FlushFileBuffers(pipe.Server());
        done.Set();
    });
    const bool blocked = !support::WaitFor(done.Get(), std::chrono::milliseconds(300));
    release(pipe, flusher);
    const bool ended = support::WaitFor(done.Get(), std::chrono::seconds(10));
    pipe.CloseClient(); // so that the thread ends in any case
    flusher.Join();
    return HoldsIf(blocked && ended, !blocked ? "it did not block" : "it did not end");
}

Found FlushUntilTheClientCloses()
{
    return Flush([](Pipe& pipe, win32::Thread&) { pipe.CloseClient(); });
}

Found FlushThatIsCancelled()
{
    return Flush([](Pipe&, win32::Thread& flusher) { ::CancelSynchronousIo(flusher.Get()); });
}

Found MessagesToAByteReader()
{
    Pipe pipe;
    pipe.Open();
    DWORD mode = PIPE_READMODE_MESSAGE;
    ::SetNamedPipeHandleState(pipe.Client(), &mode, nullptr, nullptr);
    std::array<char, 100> buffer{};
    DWORD toClient = 0;
    DWORD fromClient = 0;
    for (int message = 0; message < 2; ++message) {
        Record record;
        DWORD length = 0;
        ::WriteFile(pipe.Server(), "12345", 5, nullptr, &record.overlapped);
        ::GetOverlappedResult(pipe.Server(), &record.overlapped, &length, TRUE);
        ::WriteFile(pipe.Client(), "123", 3, &length, nullptr);
    }
    ::ReadFile(pipe.Client(), buffer.data(), buffer.size(), &toClient, nullptr);
    Record record;
    ::ReadFile(pipe.Server(), buffer.data(), buffer.size(), nullptr, &record.overlapped);
    ::GetOverlappedResult(pipe.Server(), &record.overlapped, &fromClient, TRUE);
    return HoldsIf(toClient == 5 && fromClient == 6, "the client read " + std::to_string(toClient) +
                                                         " bytes, the server " + std::to_string(fromClient));
}

Found ErrorsOfABrokenPipe()
{
    Pipe pipe;
    pipe.Open();
    ::DisconnectNamedPipe(pipe.Server());
    std::array<char, 8> buffer{};
    DWORD length = 0;
    ::ReadFile(pipe.Client(), buffer.data(), buffer.size(), &length, nullptr);
    const DWORD disconnected = ::GetLastError();
    Pipe other;
    other.Open();
    other.CloseServer();
    ::ReadFile(other.Client(), buffer.data(), buffer.size(), &length, nullptr);
    const DWORD closed = ::GetLastError();
    return HoldsIf((disconnected == ERROR_PIPE_NOT_CONNECTED || disconnected == ERROR_BROKEN_PIPE) &&
                       closed == ERROR_BROKEN_PIPE,
                   Error(disconnected) + " after a disconnect, " + Error(closed) + " after a close");
}

Found OnlyOneInstance()
{
    const std::wstring name = support::PipePath(support::UniqueName(L"WindowsCheck"));
    const auto create = [&] {
        return win32::FileHandle(
            ::CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE, 1, 64, 64, 0, nullptr));
    };
    const win32::FileHandle first = create();
    const win32::FileHandle second = create();
    return HoldsIf(first && !second, "the second one was created");
}

Found RemoteClientsRefused()
{
    const Pipe pipe(PIPE_REJECT_REMOTE_CLIENTS);
    return Holds();
}

/// The rights that the default DACL of a pipe gives everyone.
Found DefaultSecurity()
{
    const Pipe pipe;
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (const DWORD error = ::GetSecurityInfo(pipe.Server(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                              nullptr, &list, nullptr, &descriptor);
        error != ERROR_SUCCESS)
    {
        return Differs("the pipe's security can't be read, " + Error(error));
    }
    std::array<BYTE, SECURITY_MAX_SID_SIZE> everyone{};
    DWORD size = everyone.size();
    ::CreateWellKnownSid(WinWorldSid, nullptr, everyone.data(), &size);
    bool mayRead = false;
    for (DWORD entry = 0; list != nullptr && entry < list->AceCount; ++entry) {
        void* ace = nullptr;
        if (::GetAce(list, entry, &ace)) {
            auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
            mayRead = mayRead ||
                      (allowed->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
                       ::EqualSid(&allowed->SidStart, everyone.data()) && (allowed->Mask & FILE_READ_DATA) != 0);
        }
    }
    ::LocalFree(descriptor);
    return HoldsIf(mayRead, list == nullptr ? "there is no access control list" : "everyone has no right to read");
}

} // namespace

std::vector<Row> PipeRows()
{
    return {
        {"A refused overlapped read fails at its start and sets no event.", "Synchronous and Asynchronous I/O",
         ReadOfAListeningPipe},
        {"A client that opened before the connect makes it fail with error 535 and sets no event.",
         "ConnectNamedPipe function", ClientBeforeTheConnect},
        {"A write that is complete at its start says so, with its length.", "WriteFile function", CompletedAtOnce},
        {"A cancelled read ends with error 995 and sets its event.", "CancelIoEx function", Cancelled},
        {"A flush of a pipe blocks until the client has read or closed its end.", "FlushFileBuffers function",
         FlushUntilTheClientCloses},
        {"Another thread can end a flush that blocks.", "CancelSynchronousIo function", FlushThatIsCancelled},
        {"The client reads messages, the server bytes, of one and the same pipe.",
         "Named Pipe Type, Read, and Wait Modes", MessagesToAByteReader},
        {"A pipe's client sees error 109 or 233 when its server has gone.", "Named Pipe Operations",
         ErrorsOfABrokenPipe},
        {"A pipe of one instance cannot be created twice.", "CreateNamedPipe function", OnlyOneInstance},
        {"A pipe can refuse clients over the network.", "CreateNamedPipe function", RemoteClientsRefused},
        {"By default everyone may open a pipe for reading.", "Named Pipe Security and Access Rights",
         DefaultSecurity},
    };
}

} // namespace windowscheck
