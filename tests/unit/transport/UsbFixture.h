// The transport over simulated instruments: the driver, a module that records, and the instruments' other end.
#pragma once

#include "tests/instrument/InstrumentControl.h"
#include "tests/support/Frames.h"
#include "tests/support/RecordingTrace.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/transport/FakeHost.h"
#include "tests/unit/transport/OpenDriver.h"
#include "trace/Trace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace usbtransport {

using instrumentbus::Action;
using instrumentbus::Bytes;
using instrumentbus::Counters;
using instrumentbus::Instrument;
using instrumentbus::InstrumentWith;
using instrumentbus::Rule;
using support::Frame;
using support::RecordingTrace;

inline constexpr std::uint8_t Out = 0x02;
inline constexpr std::uint8_t In = 0x86;

// NT statuses that the instrument's driver is told to answer, and the error code that Windows makes of the first.
inline constexpr std::uint32_t StatusIoDeviceError = 0xC0000185;
inline constexpr int ErrorIoDevice = 1117;
inline constexpr std::uint32_t StatusWithoutError = 0xC0010000;

/// Every test begins without any instrument and without the driver. One process at a time uses the slots of a
/// Windows.
class UsbTransport : public testing::Test
{
protected:
    UsbTransport();
    ~UsbTransport() override;

    /// Makes the driver and starts it.
    void Start();
    /// Plugs `description` into slot 0, starts the driver and waits until it serves the instrument.
    void Connect(const instrumentbus::Description& description = Instrument());
    /// Waits until the instrument in `slot` is served, by a connect procedure that began after the last call: the
    /// numbering has begun and a read is pending.
    void AwaitConnection(std::uint32_t slot = 0);
    /// Waits until a connect procedure has begun since the last AwaitConnection.
    void AwaitLoss();
    /// Unplug and AwaitLoss.
    void Lose(std::uint32_t slot = 0);
    /// Makes the driver reconnect to the instrument in slot 0, which stays plugged.
    void Reopen();

    /// A packet of port (3, 1). Lets quiet seconds go on (see FakeHost::quietSeconds), if the test has stopped
    /// them.
    void Send(std::string_view payload);

    /// The next frame written since AwaitConnection; what was written before and not taken is dropped.
    std::optional<std::string> NextFrame(std::uint32_t slot = 0);
    /// The next of them that is no idle packet; those come after every quiet second, also in the middle of a test
    /// that a busy machine has stopped for that long. All frames since AwaitConnection count up from 0.
    std::optional<std::string> NextRequest(std::uint32_t slot = 0);
    /// Whether the next request is what Send makes of `payload`.
    testing::AssertionResult NextIs(std::string_view payload, std::uint32_t slot = 0);
    /// The next number that NextRequest expects; a test that loses packets moves it.
    std::uint8_t nextNumber = 0;

    /// The instrument sends: one call is what one read gets.
    void Feed(const std::string& bytes, std::uint32_t slot = 0);
    /// Waits for that many deliveries to ports in all and compares the last one's payload.
    testing::AssertionResult Delivered(std::size_t count, std::string_view last);

    /// A rule for slot 0 that applies to all transfers of `endpoint`.
    static Rule For(std::uint8_t endpoint, std::uint32_t actions, std::uint32_t count = 0);
    /// The same for an I/O control.
    static Rule ForControl(std::uint32_t code, std::uint32_t actions);

    /// Whether lines with these parts were traced one after the other, others in between or not.
    static testing::AssertionResult TracedInOrder(std::initializer_list<std::string_view> parts);

    /// Called for every line traced, on the thread that traces it. To be set before Start.
    std::function<void(const std::string&)> onLine;

    instrumentbus::InstrumentControl bus;
    FakeHost host;
    std::optional<OpenDriver> driver;

private:
    /// What the command thread may touch until it has ended: `driver` is empty as soon as its destruction begins.
    OpenDriver* m_started = nullptr;
    std::atomic<int> m_procedures{0}; // connect procedures begun; counted on the command thread
    int m_proceduresBefore = 0;       // those up to the present connection's
    std::uint32_t m_connection = 0;   // the instrument's count of opens at the present connection
};

} // namespace usbtransport
