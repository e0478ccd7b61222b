#include "client/ClientPipe.h"

#include "win32/WaitSet.h"

#include <algorithm>
#include <utility>

namespace {

using std::chrono::steady_clock;

/// Room for the longest payload of a packet.
constexpr std::size_t LongestMessage = 65536;

/// Between two tries to open the pipe.
constexpr DWORD TryPause = 5;

/// So long a newly opened pipe is watched: if the router was about to recreate it, it breaks within this time.
constexpr ClientPipe::Timeout Settling{20};

/// While the router recreates a pipe, an open may be refused as busy for a moment. Only a client that holds the
/// pipe keeps it busy for so long.
constexpr ClientPipe::Timeout HeldByAnother{1000};

enum class Slot : DWORD { Completed, Stop, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

} // namespace

ClientPipe::ClientPipe(std::wstring path, HANDLE stop, HANDLE stopWriting)
    : m_path(std::move(path)), m_stop(stop), m_stopWriting(stopWriting), m_buffer(LongestMessage)
{
}

ClientPipe::Outcome ClientPipe::Open(Timeout timeout)
{
    const auto end = steady_clock::now() + timeout;
    bool wasBusy = false;
    steady_clock::time_point busySince{};
    for (;;) {
        Close();
        if (TryOpen() && StaysOpen()) {
            return Outcome::Done;
        }
        const DWORD refusal = m_error;
        Close();
        m_error = refusal;
        const auto now = steady_clock::now();
        const bool isBusy = refusal == ERROR_PIPE_BUSY;
        if (!std::exchange(wasBusy, isBusy)) {
            busySince = now;
        }
        if (isBusy && now - busySince >= HeldByAnother) {
            return Outcome::Busy;
        }
        if (!isBusy && now >= end) {
            return Outcome::Absent;
        }
        if (::WaitForSingleObject(m_stop, TryPause) == WAIT_OBJECT_0) {
            return Outcome::Stopped;
        }
    }
}

bool ClientPipe::TryOpen()
{
    m_pipe.Reset(::CreateFileW(m_path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED, nullptr));
    if (!m_pipe) {
        m_error = ::GetLastError();
        return false;
    }
    // The router writes messages and leaves it to its client to read them as such. On a pipe without messages the
    // request is refused, and bytes are read as they come.
    DWORD mode = PIPE_READMODE_MESSAGE;
    ::SetNamedPipeHandleState(m_pipe.Get(), &mode, nullptr, nullptr);
    return StartReading();
}

bool ClientPipe::StaysOpen()
{
    if (Await(m_read, m_stop, Settling) != Outcome::Done) {
        return true;
    }
    DWORD length = 0;
    // Only looked at: a message that has come already is left for Read, which asks again.
    if (m_read.Finish(m_pipe.Get(), length)) {
        m_read.SignalEvent();
        return true;
    }
    m_error = ::GetLastError();
    return false;
}

bool ClientPipe::StartReading()
{
    m_isReading = m_read.Read(m_pipe.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size()));
    if (!m_isReading) {
        m_error = ::GetLastError();
    }
    return m_isReading;
}

ClientPipe::Outcome ClientPipe::Await(const win32::OverlappedOperation& operation, HANDLE stop, Timeout timeout)
{
    const win32::WaitSet<Slot, 2> wait(operation.EventHandle(), stop);
    switch (wait.Any(static_cast<DWORD>(std::max<Timeout::rep>(timeout.count(), 0)))) {
    case Slot::Completed: return Outcome::Done;
    case Slot::Stop: return Outcome::Stopped;
    default: return Outcome::TimedOut;
    }
}

ClientPipe::Outcome ClientPipe::Complete(win32::OverlappedOperation& operation, HANDLE stop, DWORD& length,
                                         Timeout timeout, DWORD& error)
{
    // Mostly it is over already, and a wait would be a kernel call for nothing.
    if (operation.Finish(m_pipe.Get(), length)) {
        return Outcome::Done;
    }
    if (::GetLastError() == ERROR_IO_INCOMPLETE) {
        const Outcome outcome = Await(operation, stop, timeout);
        if (outcome != Outcome::Done) {
            return outcome;
        }
        if (operation.Finish(m_pipe.Get(), length)) {
            return Outcome::Done;
        }
    }
    error = ::GetLastError();
    return Outcome::Broken;
}

ClientPipe::Outcome ClientPipe::Write(std::span<const std::uint8_t> message, Timeout timeout)
{
    if (!m_pipe || !m_write.Write(m_pipe.Get(), message.data(), static_cast<DWORD>(message.size()))) {
        m_writeError = m_pipe ? ::GetLastError() : ERROR_INVALID_HANDLE;
        return Outcome::Broken;
    }
    DWORD length = 0;
    const Outcome outcome = Complete(m_write, m_stopWriting, length, timeout, m_writeError);
    // A message that was written before the cancel reached it must not be reported as not written.
    return m_write.CancelAndFinish(length) ? Outcome::Done : outcome;
}

ClientPipe::Outcome ClientPipe::Read(std::vector<std::uint8_t>& message, Timeout timeout)
{
    message.clear();
    if (!m_pipe) {
        m_error = ERROR_INVALID_HANDLE;
        return Outcome::Broken;
    }
    if (!m_isReading && !StartReading()) {
        return Outcome::Broken;
    }
    DWORD length = 0;
    Outcome outcome = Complete(m_read, m_stop, length, timeout, m_error);
    // "ExitThread function": a thread's end cancels the operations that it started, and the read may have been
    // started by a thread that has ended. Nothing was read then.
    while (outcome == Outcome::Broken && m_error == ERROR_OPERATION_ABORTED && StartReading()) {
        outcome = Complete(m_read, m_stop, length, timeout, m_error);
    }
    if (outcome == Outcome::Done) {
        message.assign(m_buffer.begin(), m_buffer.begin() + length);
        m_isReading = false;
    }
    return outcome;
}

// A refused start shows at the next Read.
void ClientPipe::ReadAhead()
{
    if (m_pipe && !m_isReading) {
        StartReading();
    }
}

ClientPipe::Outcome ClientPipe::Flush() noexcept
{
    if (::FlushFileBuffers(m_pipe.Get())) {
        return Outcome::Done;
    }
    m_writeError = ::GetLastError();
    return m_writeError == ERROR_OPERATION_ABORTED ? Outcome::Stopped : Outcome::Broken;
}

void ClientPipe::Close()
{
    m_write.Cancel();
    m_read.Cancel();
    m_pipe.Reset();
}
