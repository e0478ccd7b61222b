// The scripted instrument at the router's simulator pipe.
#include "console/Console.h"
#include "instrument/Endpoint.h"

#include <span>
#include <utility>

namespace instrument {

namespace {

// Much more than the router ever has pending, so that neither end waits for the other's buffer, and one write for
// all that is due: a peer for measurements.
constexpr DWORD PipeBuffer = 1024 * 1024;
constexpr DWORD ReadLength = 256 * 1024;

/// The old pipe's name is free only once the router has closed its end.
constexpr Time NameTakenTimeout = std::chrono::seconds(10);
constexpr DWORD NameTakenPauseMs = 10;

class PipeEndpoint : public Endpoint
{
public:
    PipeEndpoint(std::wstring path, Engine& engine, HANDLE stop)
        : Endpoint(engine, stop, ReadLength), m_path(std::move(path))
    {
        m_awaited = {{&m_read, [this] { TakeReads(); }}, {&m_write, [this] { ResultOf(m_write); }}};
    }

private:
    void Begin() override
    {
        if (OpenPipe()) {
            StartConnecting();
            return;
        }
        const DWORD error = ::GetLastError();
        const bool taken = error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY;
        FinishWith(taken ? End::Taken : End::Refused, std::to_string(error));
    }

    void Return() override
    {
        const Time end = console::Now() + NameTakenTimeout;
        while (!OpenPipe()) {
            if (::WaitForSingleObject(m_stop, NameTakenPauseMs) == WAIT_OBJECT_0) {
                return FinishWith(End::Stopped);
            }
            if (console::Now() >= end) {
                return FinishWith(End::Taken);
            }
        }
        StartConnecting();
    }

    void StartWrite() override
    {
        m_write.Write(m_file.Get(), m_writing.data(), static_cast<DWORD>(m_writing.size()));
    }

    void Vanish() override
    {
        StopTransfers();
        m_connected = false;
        // Closed, not disconnected: what was written before stays readable for the router.
        m_file.Reset();
    }

    bool OpenPipe()
    {
        constexpr DWORD Mode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE;
        m_file.Reset(::CreateNamedPipeW(m_path.c_str(), Mode, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1,
                                        PipeBuffer, PipeBuffer, 0, nullptr));
        return static_cast<bool>(m_file);
    }

    void StartConnecting()
    {
        // A client that came and went between two steps makes the pipe unusable until it is disconnected.
        while (!m_read.ConnectPipe(m_file.Get())) {
            const DWORD error = ::GetLastError();
            if (error != ERROR_NO_DATA || ::DisconnectNamedPipe(m_file.Get()) == FALSE) {
                return FinishWith(End::Refused, std::to_string(error));
            }
        }
    }

    void OnRead(DWORD length) override
    {
        if (std::exchange(m_connected, true)) {
            m_engine.Receive(std::span(m_readBuffer).first(length), console::Now());
            PlayWhatIsDue();
        } else {
            m_engine.Connected(console::Now());
        }
        if (m_connected && !m_read.Read(m_file.Get(), m_readBuffer.data(), ReadLength)) {
            OnFailure(m_read);
        }
    }

    void OnFailure(const win32::OverlappedOperation&) override
    {
        const DWORD error = ::GetLastError();
        StopTransfers();
        if (std::exchange(m_connected, false)) {
            m_engine.Disconnected();
            m_engine.Say("router gone (" + std::to_string(error) + ")");
        }
        ::DisconnectNamedPipe(m_file.Get());
        StartConnecting();
    }

    const std::wstring m_path;
    bool m_connected = false; // until then m_read is the connection
};

} // namespace

std::unique_ptr<Endpoint> MakePipeEndpoint(const std::wstring& path, Engine& engine, HANDLE stop)
{
    return std::make_unique<PipeEndpoint>(path, engine, stop);
}

} // namespace instrument
