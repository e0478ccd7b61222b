#include "instrument/PipeEndpoint.h"

#include "console/Console.h"

#include <span>
#include <utility>

namespace instrument {

namespace {

/// Much more than the router ever has pending, so that neither end waits for the other's buffer.
constexpr DWORD PipeBuffer = 1024 * 1024;
constexpr std::size_t ReadBuffer = std::size_t{256} * 1024;

/// The old pipe's name is free only once the router has closed its end.
constexpr Time NameTakenTimeout = std::chrono::seconds(10);
constexpr DWORD NameTakenPauseMs = 10;

} // namespace

PipeEndpoint::PipeEndpoint(std::wstring path, Engine& engine, Observer& observer, HANDLE stop)
    : Endpoint(engine, observer),
      m_path(std::move(path)),
      m_stop(stop),
      m_readBuffer(ReadBuffer),
      m_idleWait(stop, m_reading.EventHandle()),
      m_writingWait(stop, m_reading.EventHandle(), m_writes.EventHandle())
{
}

void PipeEndpoint::Begin()
{
    if (OpenPipe()) {
        StartConnecting();
        return;
    }
    const DWORD error = ::GetLastError();
    const bool taken = error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY;
    FinishWith(taken ? End::Taken : End::Refused, std::to_string(error));
}

void PipeEndpoint::Return()
{
    const Time end = console::Now() + NameTakenTimeout;
    while (!OpenPipe() && console::Now() < end) {
        if (::WaitForSingleObject(m_stop, NameTakenPauseMs) == WAIT_OBJECT_0) {
            FinishWith(End::Stopped);
            return;
        }
    }
    if (m_pipe) {
        StartConnecting();
    } else {
        FinishWith(End::Taken);
    }
}

void PipeEndpoint::Await(DWORD milliseconds)
{
    if (!m_pipe) {
        // Away: of the two only the stop signal can come.
        m_reading.ResetEvent();
    }
    switch (m_writes.IsPending() ? m_writingWait.Any(milliseconds) : m_idleWait.Any(milliseconds)) {
    case Slot::Stop: FinishWith(End::Stopped); break;
    case Slot::Pipe: OnPipeEvent(); break;
    case Slot::Written: OnWritten(); break;
    case Slot::TimedOut:
    case Slot::Failed: break;
    }
}

bool PipeEndpoint::OpenPipe()
{
    constexpr DWORD Mode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE;
    m_pipe.Reset(::CreateNamedPipeW(m_path.c_str(), Mode, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1,
                                    PipeBuffer, PipeBuffer, 0, nullptr));
    return static_cast<bool>(m_pipe);
}

void PipeEndpoint::ClosePipe()
{
    m_writes.Cancel();
    m_reading.Cancel();
    m_connected = false;
    // Closed, not disconnected: what was written before stays readable for the router.
    m_pipe.Reset();
}

void PipeEndpoint::StartConnecting()
{
    // A client that came and went between two steps makes the pipe unusable until it is disconnected.
    while (!m_reading.ConnectPipe(m_pipe.Get())) {
        const DWORD error = ::GetLastError();
        if (error == ERROR_PIPE_CONNECTED) {
            OnOpened();
            return;
        }
        if (error != ERROR_NO_DATA || ::DisconnectNamedPipe(m_pipe.Get()) == FALSE) {
            FinishWith(End::Refused, std::to_string(error));
            return;
        }
    }
}

void PipeEndpoint::OnOpened()
{
    m_connected = true;
    OnConnected();
    StartReading();
}

bool PipeEndpoint::StartReading()
{
    if (m_reading.Read(m_pipe.Get(), m_readBuffer.data(), static_cast<DWORD>(m_readBuffer.size()))) {
        return true;
    }
    OnBroken();
    return false;
}

void PipeEndpoint::OnPipeEvent()
{
    DWORD unused = 0;
    if (!m_pipe) {
        return;
    }
    if (m_connected) {
        OnRead();
    } else if (m_reading.Finish(m_pipe.Get(), unused)) {
        OnOpened();
    } else if (::GetLastError() != ERROR_IO_INCOMPLETE) {
        ::DisconnectNamedPipe(m_pipe.Get());
        StartConnecting();
    }
}

void PipeEndpoint::OnRead()
{
    // What has come meanwhile is taken without going through the wait.
    for (int step = 0; step < Burst && m_connected; ++step) {
        DWORD length = 0;
        if (!m_reading.Finish(m_pipe.Get(), length)) {
            if (::GetLastError() != ERROR_IO_INCOMPLETE) {
                OnBroken();
            }
            return;
        }
        m_engine.Receive(std::span(m_readBuffer).first(length), console::Now());
        PlayWhatIsDue();
        if (!m_connected || !StartReading()) {
            return;
        }
    }
}

void PipeEndpoint::Write(const Bytes& bytes)
{
    if (m_writes.Write(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()))) {
        // Mostly the pipe has room and the write is complete already: its event is then not waited for at all.
        OnWritten();
    } else {
        OnBroken();
    }
}

void PipeEndpoint::OnWritten()
{
    DWORD length = 0;
    if (!m_writes.Finish(m_pipe.Get(), length) && ::GetLastError() != ERROR_IO_INCOMPLETE) {
        OnBroken();
    }
}

void PipeEndpoint::OnBroken()
{
    const DWORD error = ::GetLastError();
    m_writes.Cancel();
    m_reading.Cancel();
    m_connected = false;
    OnRouterGone(std::to_string(error));
    ::DisconnectNamedPipe(m_pipe.Get());
    StartConnecting();
}

} // namespace instrument
