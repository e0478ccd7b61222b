// What the tests of usb/ share: the simulated instruments and a device to find them with.
#pragma once

#include "tests/instrument/InstrumentControl.h"
#include "tests/support/TestSupport.h"
#include "usb/BulkTransfer.h"
#include "usb/EndPointKinds.h"
#include "usb/UsbDevice.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace usbtest {

using instrumentbus::Action;
using instrumentbus::Bytes;
using instrumentbus::Counters;
using instrumentbus::Instrument;
using instrumentbus::InstrumentWith;
using instrumentbus::Rule;

inline constexpr GUID InstrumentInterface = {
    0x4E7B2C19, 0x8D35, 0x4A60, {0xB1, 0xF2, 0x7C, 0x9E, 0x05, 0xD3, 0xA6, 0x48}};
inline constexpr std::uint8_t Out = 0x02;
inline constexpr std::uint8_t In = 0x86;

/// Every test begins without any instrument. One process at a time uses the slots of a Windows.
class UsbTest : public testing::Test
{
protected:
    void SetUp() override { bus.Clear(); }
    void TearDown() override
    {
        device.Close();
        bus.Clear();
    }

    /// Plugs `description` into slot 0 and opens it.
    void Connect(const instrumentbus::Description& description = Instrument());

    /// The endpoint of that address; null when the device has none.
    CCyUSBEndPoint* Endpoint(std::uint8_t address);

    /// A rule for slot 0 that does nothing yet and applies to all transfers of `endpoint`.
    static Rule For(std::uint8_t endpoint, std::uint32_t actions);
    /// The same for an I/O control.
    static Rule ForControl(std::uint32_t code, std::uint32_t actions);

    /// Begins a write of `bytes` that lives as long as it must.
    bool Write(usb::BulkTransfer& transfer, Bytes bytes);

    instrumentbus::InstrumentControl bus;
    UsbDevice device{nullptr, InstrumentInterface, false};
};

/// Waits for the end of `transfer` and takes its result.
struct Outcome
{
    bool worked = false;
    std::uint32_t length = 0;
    DWORD lastError = 0;
};
Outcome End(usb::BulkTransfer& transfer);

/// `count` bytes that tell where they stand.
Bytes Pattern(std::size_t count, std::uint8_t seed = 0);

} // namespace usbtest
