// Requests that are done or refused at once. For those Windows promises neither the event nor the record, so a
// test takes both away; and the order of the I/O controls of an Open, seen from there.
#include "tests/unit/usb/Hooks.h"
#include "tests/unit/usb/UsbFixture.h"
#include "usb/ControlCodes.h"

#include <cstring>

namespace usbtest {

class AtOnce : public UsbTest
{
protected:
    /// Does the request and answers as if it had been done at once, with the event as it was before and the record
    /// as if nothing had happened.
    static BOOL DoneAtOnce(const ControlCall& call)
    {
        const win32::Event done(win32::Event::Kind::ManualReset);
        OVERLAPPED own{};
        own.hEvent = done.Get();
        ControlCall real = call;
        DWORD unused = 0;
        real.overlapped = &own;
        real.returned = &unused;
        DWORD returned = 0;
        const BOOL worked = (CallWindows(real) != FALSE || ::GetLastError() == ERROR_IO_PENDING) &&
                            ::GetOverlappedResult(call.device, &own, &returned, TRUE) != FALSE;
        ::ResetEvent(call.overlapped->hEvent);
        call.overlapped->Internal = STATUS_PENDING;
        *call.returned = returned;
        return worked;
    }
    /// Refuses the request with a record that reads like a success.
    static BOOL RefusedWithStatus0(const ControlCall& call)
    {
        ::ResetEvent(call.overlapped->hEvent);
        call.overlapped->Internal = 0;
        call.overlapped->InternalHigh = 10;
        ::SetLastError(ERROR_IO_DEVICE);
        return FALSE;
    }

    usb::BulkTransfer transfer;
};

TEST_F(AtOnce, AWriteHasItsEnd)
{
    Connect();
    {
        const ControlHook hook(&DoneAtOnce);
        ASSERT_TRUE(Write(transfer, Pattern(30)));
    }
    const Outcome outcome = End(transfer);
    EXPECT_TRUE(outcome.worked);
    EXPECT_EQ(outcome.length, 30u);
    EXPECT_EQ(bus.TakeWritten(0, Out)->bytes, Pattern(30));
}

TEST_F(AtOnce, AReadHasItsEndAndItsData)
{
    Connect();
    bus.Feed(0, In, Pattern(40));
    const ControlHook hook(&DoneAtOnce);
    ASSERT_TRUE(transfer.BeginRead(*Endpoint(In), 100));
    const Outcome outcome = End(transfer);
    EXPECT_TRUE(outcome.worked);
    ASSERT_EQ(outcome.length, 40u);
    const auto bytes = transfer.Received().first(40);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), Pattern(40));
}

TEST_F(AtOnce, AnAbandonedOneIsNotKept)
{
    Connect();
    const ControlHook hook(&DoneAtOnce);
    ASSERT_TRUE(Write(transfer, Pattern(30)));
    transfer.Abandon();
    EXPECT_EQ(Endpoint(Out)->Abandoned().Count(), 0u);
}

TEST_F(AtOnce, ARefusalIsAFailureWhateverTheRecordSays)
{
    Connect();
    const ControlHook hook(&RefusedWithStatus0);
    ASSERT_TRUE(Write(transfer, Pattern(30)));
    const Outcome outcome = End(transfer);
    EXPECT_FALSE(outcome.worked);
    EXPECT_EQ(outcome.lastError, DWORD{ERROR_IO_DEVICE});
    EXPECT_EQ(outcome.length, 0u);
}

TEST_F(AtOnce, AControlHasItsAnswer)
{
    bus.Plug(0, Instrument());
    const ControlHook hook(&DoneAtOnce);
    ASSERT_TRUE(device.Open(0));
    EXPECT_EQ(device.VendorId(), 0x1E4F);
    EXPECT_EQ(device.Identity().driverVersion, 0x01020304u);
    EXPECT_STREQ(device.Identity().friendlyName.data(), "Simulated instrument");
}

namespace {

/// One I/O control of an Open: the code, and what an endpoint-0 transfer asks for.
struct Asked
{
    DWORD code;
    std::uint16_t value;
    bool operator==(const Asked&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Asked& asked)
{
    return out << std::hex << asked.code << "/" << asked.value;
}

constexpr Asked Descriptor(std::uint8_t type, std::uint8_t index = 0)
{
    return {usb::ControlEndpointZero, static_cast<std::uint16_t>(type << 8 | index)};
}

} // namespace

TEST_F(AtOnce, AnOpenAsksInItsOrder)
{
    bus.Plug(0, Instrument());
    std::vector<Asked> asked;
    {
        const ControlHook hook([&](const ControlCall& call) {
            Asked each{call.code, 0};
            if (call.code == usb::ControlEndpointZero) {
                std::memcpy(&each.value, static_cast<const std::uint8_t*>(call.input) + 2, 2);
            }
            asked.push_back(each);
            return CallWindows(call);
        });
        ASSERT_TRUE(device.Open(0));
    }
    const usb::DeviceDescriptor& texts = device.Identity().descriptor;
    const std::vector<Asked> expected{Descriptor(1), // the device
                                      Descriptor(3),
                                      Descriptor(3), // its languages: their length, then all
                                      Descriptor(3, texts.manufacturerString),
                                      Descriptor(3, texts.manufacturerString),
                                      Descriptor(3, texts.productString),
                                      Descriptor(3, texts.productString),
                                      Descriptor(3, texts.serialNumberString),
                                      Descriptor(3, texts.serialNumberString),
                                      {usb::ControlDeviceAddress, 0},
                                      {usb::ControlFriendlyName, 0},
                                      {usb::ControlDriverVersion, 0},
                                      {usb::ControlStackVersion, 0},
                                      {usb::ControlBusSpeed, 0},
                                      Descriptor(2),
                                      Descriptor(2), // the configuration: its length, then all
                                      {usb::ControlAlternateSetting, 0}};
    EXPECT_EQ(asked, expected);
}

} // namespace usbtest
