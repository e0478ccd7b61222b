// A simulated instrument at the router's simulator pipe: serves the pipe and plays the engine on it.
#pragma once

#include "instrument/EngineLoop.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"
#include "win32/WaitSet.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// Used by the thread that runs it. Big buffers and one write for all that is due make it a peer for measurements.
class PipeInstrument : public EngineLoop
{
public:
    /// `pipePath` with its "\\.\pipe\"; `stop` is borrowed.
    PipeInstrument(std::wstring pipePath, instrument::InstrumentEngine& engine, HANDLE stop, Listener listener);

private:
    enum class Slot : DWORD { Stop, Pipe, Written, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

    void Begin() override;
    void Await(DWORD milliseconds) override;
    bool IsWriting() const override { return m_writes.IsPending(); }
    void Write(const instrument::Bytes& bytes) override;
    void Vanish() override { ClosePipe(); }
    void Return() override;
    void Leave() override { ClosePipe(); }
    void DoWhatIsDue() override;
    std::optional<std::chrono::microseconds> NextDue() const override { return m_serveAgain; }

    bool OpenPipe();
    void ClosePipe();
    void StartConnecting();
    void OnOpened();
    void OnPipeEvent();
    void OnRead();
    void OnWritten();
    void OnBroken(DWORD error);
    bool StartReading();
    void ServeAgain();

    const std::wstring m_path;
    std::vector<std::uint8_t> m_readBuffer;
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_reading; // the connection, then the reads
    win32::OverlappedOperation m_writes;
    const win32::WaitSet<Slot, 2> m_idleWait; // while no write is under way
    const win32::WaitSet<Slot, 3> m_writingWait;
    std::optional<std::chrono::microseconds> m_serveAgain; // when, after the instrument came back
    bool m_connected = false;
};
