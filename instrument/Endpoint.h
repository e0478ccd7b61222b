// The loop that plays a scripted instrument, and its cables: the router's simulator pipe, a simulated USB device.
#pragma once

#include "instrument/Engine.h"
#include "win32/Windows.h"

#include <memory>
#include <optional>
#include <string>

namespace instrument {

/// Used by the thread that runs it.
class Endpoint
{
public:
    /// Taken: another program plays at this place. Refused: it can't be played at, Failure() says why.
    enum class End { Stopped, TimeOver, EnoughRequests, Taken, Refused };

    struct Limits
    {
        std::optional<Time> time;
        std::optional<std::uint64_t> requests; // ends when so many were taken and all that was due is written
    };

    virtual ~Endpoint() = default;
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    End Run(const Limits& limits);

    /// After End::Refused: why, in a few words.
    const std::string& Failure() const noexcept { return m_failure; }

protected:
    Endpoint(Engine& engine, const Observer& observer) : m_engine(engine), m_observer(observer) {}

    /// After so many steps in a row without waiting the wait is asked again, so that the stop signal is seen.
    static constexpr int Burst = 64;

    /// The instrument can be found from now on, or FinishWith was called.
    virtual void Begin() = 0;
    /// Waits for one event of the endpoint, at most `milliseconds`, and handles it.
    virtual void Await(DWORD milliseconds) = 0;
    virtual bool IsWriting() const = 0;
    /// Writes `bytes`, which stay as they are until IsWriting() is false again.
    virtual void Write(const Bytes& bytes) = 0;
    virtual void Vanish() = 0;
    virtual void Return() = 0;
    /// The instrument cannot be found any more.
    virtual void Leave() = 0;

    void FinishWith(End end, std::string failure = {});
    void OnConnected();
    /// The reason may be empty.
    void OnRouterGone(const std::string& reason);
    /// Plays what the engine has to write or to do just now, as far as no write is pending.
    void PlayWhatIsDue();

    Engine& m_engine;

private:
    DWORD WaitTime(std::optional<Time> end) const;
    void CheckLimits(const Limits& limits, std::optional<Time> end);

    const Observer& m_observer;
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
