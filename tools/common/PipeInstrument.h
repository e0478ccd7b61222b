// A simulated instrument at the router's simulator pipe: serves the pipe and plays the engine on it.
#pragma once

#include "tools/common/InstrumentEngine.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"
#include "win32/WaitSet.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Used by the thread that runs it. Big buffers and one write for all that is due make it a peer for measurements.
class PipeInstrument
{
public:
    enum class End { Stopped, TimeOver, EnoughRequests, PipeTaken, PipeRefused };

    struct Limits
    {
        std::optional<std::chrono::microseconds> time;
        std::optional<std::uint64_t> requests; // ends when so many were taken and all that was due is written
    };

    /// What the run tells, from inside itself; all may be empty.
    struct Listener
    {
        std::function<void()> served;                // the pipe can be opened; once
        std::function<void()> connected;             // the router has opened it
        std::function<void(DWORD error)> routerGone; // with the Windows error of the read or write
        std::function<void()> vanished;
        std::function<void()> returned;
        std::function<void()> pass; // after each pass of the loop
    };

    /// `pipePath` with its "\\.\pipe\"; `stop` is borrowed.
    PipeInstrument(std::wstring pipePath, instrument::InstrumentEngine& engine, HANDLE stop, Listener listener);

    End Run(const Limits& limits);

    /// After End::PipeRefused: why.
    DWORD Error() const noexcept { return m_error; }

private:
    enum class Slot : DWORD { Stop, Pipe, Written, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

    Slot Wait(std::optional<std::chrono::microseconds> end) const;
    bool OpenPipe();
    void ClosePipe();
    void StartConnecting();
    void OnConnected();
    void OnPipeEvent();
    void OnRead();
    void OnWritten();
    void OnRouterGone(DWORD error);
    bool StartReading();
    void PlayWhatIsDue();
    bool Play(instrument::InstrumentEngine::Order order);
    void StartWriting();
    void ServeAgain();

    const std::wstring m_path;
    instrument::InstrumentEngine& m_engine;
    const Listener m_listener;
    std::vector<std::uint8_t> m_readBuffer;
    instrument::Bytes m_writing;
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_reading; // the connection, then the reads
    win32::OverlappedOperation m_writes;
    const win32::WaitSet<Slot, 2> m_idleWait; // while no write is under way
    const win32::WaitSet<Slot, 3> m_writingWait;
    std::optional<std::chrono::microseconds> m_serveAgain; // when, after the instrument came back
    bool m_connected = false;
    bool m_announced = false;
    DWORD m_error = ERROR_SUCCESS;
    std::optional<End> m_end;
};
