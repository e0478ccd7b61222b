// The scripted instrument at the router's simulator pipe.
#include "console/Console.h"
#include "instrument/Endpoint.h"
#include "win32/Handle.h"

#include <span>
#include <utility>

namespace instrument {

namespace {

// Much more than the router ever has pending, so that neither end waits for the other's buffer, and one write for
// all that is due: a peer for measurements.
constexpr DWORD PipeBuffer = 1024 * 1024;
constexpr DWORD ReadBuffer = 256 * 1024;

/// The old pipe's name is free only once the router has closed its end.
constexpr Time NameTakenTimeout = std::chrono::seconds(10);
constexpr DWORD NameTakenPauseMs = 10;

class PipeEndpoint : public Endpoint
{
public:
    PipeEndpoint(std::wstring path, Engine& engine, const Observer& observer, HANDLE stop)
        : Endpoint(
              engine, observer, stop,
              {{&m_reading, [this] { OnRead(); }}, {&m_writes, [this] { ResultOf(m_writes, m_pipe.Get()); }}}),
          m_path(std::move(path)),
          m_readBuffer(ReadBuffer)
    {
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

    bool IsWriting() const override { return m_writes.IsPending(); }

    void Write(const Bytes& bytes) override
    {
        // Mostly the pipe has space and the write is complete already: its event is then not waited for at all.
        m_writes.Write(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()));
        ResultOf(m_writes, m_pipe.Get());
    }

    void Vanish() override
    {
        StopTransfers();
        // Closed, not disconnected: what was written before stays readable for the router.
        m_pipe.Reset();
    }

    void Leave() override { Vanish(); }

    bool OpenPipe()
    {
        constexpr DWORD Mode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE;
        m_pipe.Reset(::CreateNamedPipeW(m_path.c_str(), Mode, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1,
                                        PipeBuffer, PipeBuffer, 0, nullptr));
        return static_cast<bool>(m_pipe);
    }

    void StopTransfers()
    {
        m_writes.Cancel();
        m_reading.Cancel();
        m_connected = false;
    }

    void StartConnecting()
    {
        // A client that came and went between two steps makes the pipe unusable until it is disconnected.
        while (!m_reading.ConnectPipe(m_pipe.Get())) {
            const DWORD error = ::GetLastError();
            if (error != ERROR_NO_DATA || ::DisconnectNamedPipe(m_pipe.Get()) == FALSE) {
                return FinishWith(End::Refused, std::to_string(error));
            }
        }
    }

    void OnRead()
    {
        // What has come meanwhile is taken without going through the wait.
        for (int step = 0; step < Burst && m_reading.IsPending(); ++step) {
            const auto length = ResultOf(m_reading, m_pipe.Get());
            if (!length) {
                return;
            }
            if (std::exchange(m_connected, true)) {
                m_engine.Receive(std::span(m_readBuffer).first(*length), console::Now());
                PlayWhatIsDue();
            } else {
                OnConnected();
            }
            if (m_connected && !m_reading.Read(m_pipe.Get(), m_readBuffer.data(), ReadBuffer)) {
                OnFailure(m_reading);
            }
        }
    }

    void OnFailure(const win32::OverlappedOperation&) override
    {
        const DWORD error = ::GetLastError();
        const bool wasConnected = m_connected;
        StopTransfers();
        if (wasConnected) {
            OnRouterGone(std::to_string(error));
        }
        ::DisconnectNamedPipe(m_pipe.Get());
        StartConnecting();
    }

    const std::wstring m_path;
    std::vector<std::uint8_t> m_readBuffer;
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_reading; // the connection, then the reads
    win32::OverlappedOperation m_writes;
    bool m_connected = false;
};

} // namespace

std::unique_ptr<Endpoint> MakePipeEndpoint(const std::wstring& path, Engine& engine, const Observer& observer,
                                           HANDLE stop)
{
    return std::make_unique<PipeEndpoint>(path, engine, observer, stop);
}

} // namespace instrument
