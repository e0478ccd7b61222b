// The scripted instrument at the router's simulator pipe.
#pragma once

#include "instrument/Endpoint.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"
#include "win32/WaitSet.h"

#include <string>
#include <vector>

namespace instrument {

/// Serves the pipe. Used by the thread that runs it. Big buffers and one write for all that is due make it a peer
/// for measurements.
class PipeEndpoint : public Endpoint
{
public:
    /// `path` with its "\\.\pipe\"; `stop` is borrowed.
    PipeEndpoint(std::wstring path, Engine& engine, Observer& observer, HANDLE stop);

private:
    enum class Slot : DWORD { Stop, Pipe, Written, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

    void Begin() override;
    void Await(DWORD milliseconds) override;
    bool IsWriting() const override { return m_writes.IsPending(); }
    void Write(const Bytes& bytes) override;
    void Vanish() override { ClosePipe(); }
    void Return() override;
    void Leave() override { ClosePipe(); }

    bool OpenPipe();
    void ClosePipe();
    void StartConnecting();
    void OnOpened();
    void OnPipeEvent();
    void OnRead();
    void OnWritten();
    void OnBroken();
    bool StartReading();

    const std::wstring m_path;
    const HANDLE m_stop;
    std::vector<std::uint8_t> m_readBuffer;
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_reading; // the connection, then the reads
    win32::OverlappedOperation m_writes;
    const win32::WaitSet<Slot, 2> m_idleWait; // while no write is pending
    const win32::WaitSet<Slot, 3> m_writingWait;
    bool m_connected = false;
};

} // namespace instrument
