// The loop that plays a scripted instrument, and its cables: the router's simulator pipe, a simulated USB device.
#pragma once

#include "instrument/Engine.h"
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
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    End Run(const Limits& limits);

    /// After End::Refused: why, in a few words.
    const std::string& Failure() const noexcept { return m_failure; }

protected:
    /// An operation that the loop waits for while it is pending, and what to do when it has completed.
    struct Awaited
    {
        win32::OverlappedOperation* operation;
        std::function<void()> onCompleted;
    };

    /// After so many steps in a row without waiting the wait is asked again, so that the stop signal is seen.
    static constexpr int Burst = 64;

    /// `stop` is borrowed. Of several completed operations the first of `awaited` comes first.
    Endpoint(Engine& engine, const Observer& observer, HANDLE stop, std::vector<Awaited> awaited);

    /// The instrument can be found from now on, or FinishWith was called.
    virtual void Begin() = 0;
    virtual bool IsWriting() const = 0;
    /// Writes `bytes`, which stay as they are until IsWriting() is false again.
    virtual void Write(const Bytes& bytes) = 0;
    virtual void Vanish() = 0;
    virtual void Return() = 0;
    /// The instrument cannot be found any more.
    virtual void Leave() = 0;
    /// `operation` was refused or has failed with GetLastError().
    virtual void OnFailure(const win32::OverlappedOperation& operation) = 0;

    void FinishWith(End end, std::string failure = {});
    void OnConnected();
    /// The reason may be empty.
    void OnRouterGone(const std::string& reason);
    /// Plays what the engine has to write or to do just now, as far as no write is pending.
    void PlayWhatIsDue();
    /// The bytes transferred when `operation` on `file` has succeeded; none while it is pending and after a
    /// failure, for which OnFailure was called.
    std::optional<DWORD> ResultOf(win32::OverlappedOperation& operation, HANDLE file);

    Engine& m_engine;
    const HANDLE m_stop;

private:
    void Await(DWORD milliseconds);
    DWORD WaitTime(Time end) const;
    void CheckLimits(const Limits& limits, Time end);

    const Observer& m_observer;
    const std::vector<Awaited> m_awaited;
    Bytes m_writing;
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
std::unique_ptr<Endpoint> MakePipeEndpoint(const std::wstring& path, Engine& engine, const Observer& observer,
                                           HANDLE stop);
/// Plugs the device in by the remote control of the simulated instruments' driver. The router is there from its
/// first transfer until it closes the device. The device is closed with the process, whichever way that ends.
std::unique_ptr<Endpoint> MakeUsbEndpoint(const UsbPlace& place, Engine& engine, const Observer& observer,
                                          HANDLE stop);

} // namespace instrument
