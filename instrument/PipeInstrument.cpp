#include "instrument/PipeInstrument.h"

#include "console/Console.h"

#include <span>
#include <utility>

using instrument::InstrumentEngine;
using std::chrono::microseconds;

namespace {

/// Much more than the router ever has under way, so that neither end waits for the other's buffer.
constexpr DWORD PipeBuffer = 1024 * 1024;
constexpr std::size_t ReadBuffer = std::size_t{256} * 1024;

/// The old pipe's name is free only once the router has let go of its end.
constexpr microseconds NameTakenPause = std::chrono::milliseconds(10);

std::string Reason(DWORD error)
{
    return std::to_string(error);
}

} // namespace

PipeInstrument::PipeInstrument(std::wstring pipePath, InstrumentEngine& engine, HANDLE stop, Listener listener)
    : EngineLoop(engine, std::move(listener)),
      m_path(std::move(pipePath)),
      m_readBuffer(ReadBuffer),
      m_idleWait(stop, m_reading.EventHandle()),
      m_writingWait(stop, m_reading.EventHandle(), m_writes.EventHandle())
{
}

void PipeInstrument::Begin()
{
    if (OpenPipe()) {
        StartConnecting();
    }
}

void PipeInstrument::Await(DWORD milliseconds)
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

bool PipeInstrument::OpenPipe()
{
    constexpr DWORD Mode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE;
    m_pipe.Reset(::CreateNamedPipeW(m_path.c_str(), Mode, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1,
                                    PipeBuffer, PipeBuffer, 0, nullptr));
    if (!m_pipe) {
        const DWORD error = ::GetLastError();
        const bool taken = error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY;
        FinishWith(taken ? End::Taken : End::Refused, Reason(error));
    }
    return static_cast<bool>(m_pipe);
}

void PipeInstrument::ClosePipe()
{
    m_writes.Cancel();
    m_reading.Cancel();
    m_connected = false;
    // Closed, not disconnected: what was written before stays readable for the router.
    m_pipe.Reset();
}

void PipeInstrument::StartConnecting()
{
    // A client that came and went between two steps makes the pipe unusable until it is disconnected.
    while (!m_reading.ConnectPipe(m_pipe.Get())) {
        const DWORD error = ::GetLastError();
        if (error == ERROR_PIPE_CONNECTED) {
            OnOpened();
            break;
        }
        if (error != ERROR_NO_DATA || ::DisconnectNamedPipe(m_pipe.Get()) == FALSE) {
            FinishWith(End::Refused, Reason(error));
            return;
        }
    }
    OnServed();
}

void PipeInstrument::OnOpened()
{
    m_connected = true;
    OnConnected();
    StartReading();
}

bool PipeInstrument::StartReading()
{
    if (m_reading.Read(m_pipe.Get(), m_readBuffer.data(), static_cast<DWORD>(m_readBuffer.size()))) {
        return true;
    }
    OnBroken(::GetLastError());
    return false;
}

void PipeInstrument::OnPipeEvent()
{
    if (!m_pipe) {
        return;
    }
    if (m_connected) {
        OnRead();
        return;
    }
    DWORD unused = 0;
    if (m_reading.Finish(m_pipe.Get(), unused)) {
        OnOpened();
    } else if (::GetLastError() != ERROR_IO_INCOMPLETE) {
        ::DisconnectNamedPipe(m_pipe.Get());
        StartConnecting();
    }
}

void PipeInstrument::OnRead()
{
    // What has come meanwhile is taken without going through the wait.
    for (int step = 0; step < Burst && m_connected; ++step) {
        DWORD length = 0;
        if (!m_reading.Finish(m_pipe.Get(), length)) {
            const DWORD error = ::GetLastError();
            if (error != ERROR_IO_INCOMPLETE) {
                OnBroken(error);
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

void PipeInstrument::OnWritten()
{
    DWORD length = 0;
    if (!m_writes.Finish(m_pipe.Get(), length)) {
        const DWORD error = ::GetLastError();
        if (error != ERROR_IO_INCOMPLETE) {
            OnBroken(error);
        }
    }
}

void PipeInstrument::OnBroken(DWORD error)
{
    m_writes.Cancel();
    m_reading.Cancel();
    m_connected = false;
    OnRouterGone(Reason(error));
    ::DisconnectNamedPipe(m_pipe.Get());
    StartConnecting();
}

void PipeInstrument::DoWhatIsDue()
{
    if (m_serveAgain && *m_serveAgain <= console::Now()) {
        ServeAgain();
    }
}

void PipeInstrument::Return()
{
    m_serveAgain = console::Now();
    ServeAgain();
}

void PipeInstrument::Write(const instrument::Bytes& bytes)
{
    if (!m_writes.Write(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()))) {
        OnBroken(::GetLastError());
        return;
    }
    // Mostly the pipe has room and the write is over already: its event is then not waited for at all.
    OnWritten();
}

void PipeInstrument::ServeAgain()
{
    if (OpenPipe()) {
        m_serveAgain.reset();
        StartConnecting();
    } else if (IsFinishedWith(End::Taken)) {
        GoOn();
        m_serveAgain = console::Now() + NameTakenPause;
    }
}
