// The loop that plays a scripted instrument, and its cables: the router's simulator pipe, a simulated USB device.
#pragma once

#include "instrument/Engine.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace instrument {

/// Used by the thread that runs it.
class Endpoint
{
public:
    /// Taken: another program plays at this place. Refused: it can't be played at, Failure() says why.
    enum class End { Stopped, TimeOver, EnoughRequests, Taken, Refused };

    struct Limits
    {
        std::int64_t milliseconds = 0; // 0: without end
        std::int64_t requests = 0; // ends when so many were taken and all that was due is written; 0: any number
    };

    virtual ~Endpoint() = default;

    /// Once. Calls `served` as soon as the router can find the instrument, and `pass` after each pass of the loop.
    End Run(const Limits& limits, const std::function<void()>& served, const std::function<void()>& pass);

    /// After End::Refused: why, in a few words.
    const std::string& Failure() const noexcept { return m_failure; }

protected:
    /// An operation that the loop waits for while it is pending, and what to do when it has completed.
    struct Awaited
    {
        win32::OverlappedOperation* operation;
        std::function<void()> onCompleted;
    };

    /// `stop` is borrowed.
    Endpoint(Engine& engine, HANDLE stop, std::size_t readLength)
        : m_engine(engine), m_stop(stop), m_readBuffer(readLength)
    {
    }

    /// The instrument can be found from now on, or FinishWith was called.
    virtual void Begin() = 0;
    /// m_read has succeeded with `length` bytes, and is not pending any more.
    virtual void OnRead(DWORD length) = 0;
    /// Starts m_write with m_writing, which stays as it is until that has completed.
    virtual void StartWrite() = 0;
    virtual void Vanish() = 0;
    virtual void Return() = 0;
    /// The instrument cannot be found any more.
    virtual void Leave() { Vanish(); }
    /// `operation` was refused or has failed with GetLastError().
    virtual void OnFailure(const win32::OverlappedOperation& operation) = 0;

    void FinishWith(End end, std::string failure = {})
    {
        m_end = end;
        m_failure = std::move(failure);
    }
    /// Plays what the engine has to write or to do just now, as far as no write is pending.
    void PlayWhatIsDue();
    /// Calls OnRead, also for what comes meanwhile: that is taken without going through the wait.
    void TakeReads();
    void StopTransfers()
    {
        m_write.Cancel();
        m_read.Cancel();
    }
    /// The bytes transferred when `operation` on m_file has succeeded; none while it is pending and after a
    /// failure, for which OnFailure was called.
    std::optional<DWORD> ResultOf(win32::OverlappedOperation& operation);

    Engine& m_engine;
    const HANDLE m_stop;
    std::vector<Awaited> m_awaited; // of several completed operations the first comes first
    Bytes m_readBuffer;
    Bytes m_writing;
    win32::FileHandle m_file;          // the pipe, or the remote control of the driver
    win32::OverlappedOperation m_read; // cancelled before the file and the buffers are gone, as the next
    win32::OverlappedOperation m_write;

private:
    /// After so many steps in a row without waiting the wait is asked again, so that the stop signal is seen.
    static constexpr int Burst = 64;

    void Await(DWORD milliseconds);
    DWORD WaitTime(Time end) const;
    std::optional<End> LimitReached(const Limits& limits, Time end) const;

    std::string m_failure;
    std::optional<End> m_end;
};

/// Where a simulated USB device is plugged in, and as what.
struct UsbPlace
{
    static constexpr std::uint32_t Slots = 8;

    std::uint32_t slot = 0;
    std::uint16_t vendorId = 0x1E4F;
    std::uint16_t productId = 0x0100;
};

/// Serves the pipe `path` (with its "\\.\pipe\"). `stop` is borrowed, as in the next.
std::unique_ptr<Endpoint> MakePipeEndpoint(const std::wstring& path, Engine& engine, HANDLE stop);
/// Plugs the device in by the remote control of the simulated instruments' driver. The router is there from its
/// first transfer until it closes the device. The device is closed with the process, whichever way that ends.
std::unique_ptr<Endpoint> MakeUsbEndpoint(const UsbPlace& place, Engine& engine, HANDLE stop);

} // namespace instrument
