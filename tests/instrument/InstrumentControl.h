// Plays the world around the simulated instruments: plugs them in and out, is their other end.
#pragma once

#include "tests/instrument/InstrumentDescription.h"
#include "tests/instrument/InstrumentProtocol.h"
#include "win32/Handle.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

namespace instrumentbus {

/// One write of the router.
struct Written
{
    std::uint32_t connection = 0; // the count of opens when the handle that wrote it was opened
    Bytes bytes;
};

/// The remote control, open. The driver must be installed (InstrumentDriver.h). One thread, or one object per
/// thread: several may be open at a time. Everything throws std::runtime_error when the driver refuses; what waits
/// gives up after a deadline.
class InstrumentControl
{
public:
    using Milliseconds = std::chrono::milliseconds;
    static constexpr Milliseconds DefaultTimeout{20'000};

    InstrumentControl();

    /// Unplugs everything and forgets all data, rules and counters: for the start of a test.
    void Clear();

    /// The device can be found from now on. A device that is in this slot already is unplugged first.
    void Plug(std::uint32_t slot, const Description& description);
    /// What is pending there ends with ERROR_DEVICE_NOT_CONNECTED.
    void Unplug(std::uint32_t slot);

    /// The next write to `endpoint`, in one piece; none when there is none within the deadline.
    std::optional<Written> TakeWritten(std::uint32_t slot, std::uint8_t endpoint,
                                       Milliseconds timeout = DefaultTimeout);

    /// Gives `bytes` to the reads of `endpoint`: one call is what one read gets at most, longer ones take several.
    void Feed(std::uint32_t slot, std::uint8_t endpoint, std::span<const std::uint8_t> bytes);

    /// Adds a rule; see instrumentbus::Rule.
    void SetRule(const Rule& rule);
    /// Drops the rules of `endpoint` (AllEndpoints: all rules), and releases what they hold.
    void Release(std::uint32_t slot, std::uint32_t endpoint = AllEndpoints);

    Counters Count(std::uint32_t slot, std::uint8_t endpoint = 0);
    /// Waits until the counters are as `holds` wants them; false when the deadline is over first.
    bool WaitFor(std::uint32_t slot, std::uint8_t endpoint, const std::function<bool(const Counters&)>& holds,
                 Milliseconds timeout = DefaultTimeout);

private:
    /// Sends a request that is answered at once.
    Bytes Ask(std::uint32_t code, std::span<const std::uint8_t> input, std::size_t answerSize = 0);

    win32::FileHandle m_remote;
    Bytes m_taken;
};

} // namespace instrumentbus
