#include "tools/common/PipeInstrument.h"

#include "tools/common/Console.h"

#include <algorithm>
#include <utility>

using instrument::InstrumentEngine;
using std::chrono::microseconds;

namespace {

/// Much more than the router ever has under way, so that neither end waits for the other's buffer.
constexpr DWORD PipeBuffer = 1024 * 1024;
constexpr std::size_t ReadBuffer = 256 * 1024;

/// The old pipe's name is free only once the router has let go of its end.
constexpr microseconds NameTakenPause = std::chrono::milliseconds(10);

/// After so many steps in a row without waiting, the wait is asked again, for the sake of the stop signal.
constexpr int Burst = 64;

DWORD MillisecondsUntil(microseconds due, microseconds now)
{
    // Rounded up: waking too early would only mean to wait once more.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - now).count();
    return static_cast<DWORD>(std::clamp<std::int64_t>(left, 0, 60'000));
}

void Tell(const std::function<void()>& what)
{
    if (what) {
        what();
    }
}

} // namespace

PipeInstrument::PipeInstrument(std::wstring pipePath, InstrumentEngine& engine, HANDLE stop, Listener listener)
    : m_path(std::move(pipePath)),
      m_engine(engine),
      m_listener(std::move(listener)),
      m_readBuffer(ReadBuffer),
      m_idleWait(stop, m_reading.EventHandle()),
      m_writingWait(stop, m_reading.EventHandle(), m_writes.EventHandle())
{
}

PipeInstrument::End PipeInstrument::Run(const Limits& limits)
{
    const std::optional<microseconds> end =
        limits.time ? std::optional(console::Now() + *limits.time) : std::nullopt;
    m_end.reset();
    if (OpenPipe()) {
        StartConnecting();
    }
    while (!m_end) {
        switch (Wait(end)) {
        case Slot::Stop: m_end = End::Stopped; break;
        case Slot::Pipe: OnPipeEvent(); break;
        case Slot::Written: OnWritten(); break;
        case Slot::TimedOut:
        case Slot::Failed: break;
        }
        PlayWhatIsDue();
        Tell(m_listener.pass);
        const microseconds now = console::Now();
        if (!m_end && end && now >= *end) {
            m_end = End::TimeOver;
        }
        const bool allWritten = !m_engine.HasUnsent() && !m_writes.IsPending();
        if (!m_end && limits.requests && m_engine.Counted().requests >= *limits.requests && allWritten) {
            m_end = End::EnoughRequests;
        }
    }
    ClosePipe();
    return *m_end;
}

PipeInstrument::Slot PipeInstrument::Wait(std::optional<microseconds> end) const
{
    std::optional<microseconds> due = end;
    // What is due while a write is under way waits for the write's end.
    if (const auto next = m_engine.NextDue(); next && !m_writes.IsPending() && (!due || *next < *due)) {
        due = next;
    }
    if (m_serveAgain && (!due || *m_serveAgain < *due)) {
        due = m_serveAgain;
    }
    const DWORD patience = due ? MillisecondsUntil(*due, console::Now()) : INFINITE;
    if (!m_pipe) {
        // Away: of the two only the stop signal can come.
        m_reading.ResetEvent();
    }
    return m_writes.IsPending() ? m_writingWait.Any(patience) : m_idleWait.Any(patience);
}

bool PipeInstrument::OpenPipe()
{
    constexpr DWORD Mode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE;
    m_pipe.Reset(::CreateNamedPipeW(m_path.c_str(), Mode, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1,
                                    PipeBuffer, PipeBuffer, 0, nullptr));
    if (!m_pipe) {
        m_error = ::GetLastError();
        const bool taken = m_error == ERROR_ACCESS_DENIED || m_error == ERROR_PIPE_BUSY;
        m_end = taken ? End::PipeTaken : End::PipeRefused;
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
        m_error = ::GetLastError();
        if (m_error == ERROR_PIPE_CONNECTED) {
            OnConnected();
            break;
        }
        if (m_error != ERROR_NO_DATA || ::DisconnectNamedPipe(m_pipe.Get()) == FALSE) {
            m_end = End::PipeRefused;
            return;
        }
    }
    if (!std::exchange(m_announced, true)) {
        Tell(m_listener.served);
    }
}

void PipeInstrument::OnConnected()
{
    m_connected = true;
    m_engine.Connected(console::Now());
    Tell(m_listener.connected);
    StartReading();
}

bool PipeInstrument::StartReading()
{
    if (m_reading.Read(m_pipe.Get(), m_readBuffer.data(), static_cast<DWORD>(m_readBuffer.size()))) {
        return true;
    }
    OnRouterGone(::GetLastError());
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
        OnConnected();
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
                OnRouterGone(error);
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
            OnRouterGone(error);
        }
    }
}

void PipeInstrument::OnRouterGone(DWORD error)
{
    m_writes.Cancel();
    m_reading.Cancel();
    m_connected = false;
    m_engine.Disconnected(console::Now());
    if (m_listener.routerGone) {
        m_listener.routerGone(error);
    }
    ::DisconnectNamedPipe(m_pipe.Get());
    StartConnecting();
}

void PipeInstrument::PlayWhatIsDue()
{
    if (m_serveAgain && *m_serveAgain <= console::Now()) {
        ServeAgain();
    }
    for (int step = 0; step < Burst && !m_end && !m_writes.IsPending(); ++step) {
        if (!Play(m_engine.Take(console::Now(), m_writing))) {
            return;
        }
    }
}

bool PipeInstrument::Play(InstrumentEngine::Order order)
{
    switch (order) {
    case InstrumentEngine::Order::Nothing: return false;
    case InstrumentEngine::Order::Write: StartWriting(); break;
    case InstrumentEngine::Order::Vanish:
        ClosePipe();
        Tell(m_listener.vanished);
        break;
    case InstrumentEngine::Order::Return:
        Tell(m_listener.returned);
        m_serveAgain = console::Now();
        ServeAgain();
        break;
    }
    return true;
}

void PipeInstrument::StartWriting()
{
    if (!m_writes.Write(m_pipe.Get(), m_writing.data(), static_cast<DWORD>(m_writing.size()))) {
        OnRouterGone(::GetLastError());
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
    } else if (m_end == End::PipeTaken) {
        m_end.reset();
        m_serveAgain = console::Now() + NameTakenPause;
    }
}
