// The kinds of endpoints that the router does not use: control, interrupt, isochronous.
#include "tests/unit/usb/UsbFixture.h"
#include "usb/ControlCodes.h"
#include "usb/EndPointKinds.h"

#include <cstring>

namespace usbtest {

namespace describe = instrumentbus::describe;

/// The value of a packed field, to which no reference may be bound.
std::uint32_t Copy(std::uint32_t value)
{
    return value;
}

class EndpointKinds : public UsbTest
{
protected:
    void ConnectAll()
    {
        Connect(InstrumentWith(
            {describe::Endpoint(0x81, 3, 8), describe::Endpoint(0x83, 1, 100), describe::Endpoint(0x04, 1, 100)}));
        overlapped.hEvent = event.Get();
    }

    CCyControlEndPoint& Control() { return static_cast<CCyControlEndPoint&>(*device.Endpoint(0)); }
    CCyIsocEndPoint& Isochronous(std::uint8_t address)
    {
        return dynamic_cast<CCyIsocEndPoint&>(*Endpoint(address));
    }

    /// Waits and finishes; `bytes` is cut to what was transferred.
    bool Finish(CCyUSBEndPoint& endpoint, usb::RequestBlock* context, Bytes& bytes,
                std::span<usb::IsoPacketRecord> records = {})
    {
        EXPECT_NE(context, nullptr);
        EXPECT_TRUE(support::WaitFor(event.Get()));
        auto length = static_cast<std::uint32_t>(bytes.size());
        const bool worked = endpoint.FinishDataXfer(bytes.data(), length, &overlapped, context, records);
        bytes.resize(length);
        return worked;
    }

    bool Transfer(const CCyControlEndPoint::Request& request, Bytes& bytes)
    {
        Control().SetRequest(request);
        return Finish(Control(),
                      Control().BeginDataXfer(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &overlapped),
                      bytes);
    }

    win32::Event event{win32::Event::Kind::ManualReset};
    OVERLAPPED overlapped{};
};

TEST_F(EndpointKinds, AControlRequestCarriesItsSetupPacket)
{
    ConnectAll();
    CCyControlEndPoint::Request request;
    request.target = CCyControlEndPoint::Target::Interface;
    request.type = CCyControlEndPoint::RequestType::Class;
    request.direction = CCyControlEndPoint::Direction::ToDevice;
    request.code = 0xAB;
    request.value = 0x1234;
    request.index = 0x5678;
    Bytes bytes = Pattern(10);
    EXPECT_TRUE(Transfer(request, bytes));
    EXPECT_EQ(bytes.size(), 10u);
    const Counters counters = bus.Count(0);
    const Bytes setup(std::begin(counters.lastSetup), std::end(counters.lastSetup));
    EXPECT_EQ(setup, (Bytes{0x21, 0xAB, 0x34, 0x12, 0x78, 0x56, 10, 0}));
}

TEST_F(EndpointKinds, ARequestTypeJoinsDirectionTypeAndTarget)
{
    using Control = CCyControlEndPoint;
    Control::Request request;
    EXPECT_EQ(Control::Header(request, 0, 0).requestType, 0x40) << "vendor, to the device, by default";
    request.direction = Control::Direction::FromDevice;
    request.target = Control::Target::Other;
    EXPECT_EQ(Control::Header(request, 0, 0).requestType, 0xC3);
    request.type = Control::RequestType::Standard;
    request.target = Control::Target::Endpoint;
    EXPECT_EQ(Control::Header(request, 0, 0).requestType, 0x82);
}

TEST_F(EndpointKinds, AControlTimeoutIsInSecondsAndNeverRoundedToNone)
{
    const auto seconds = [](std::uint32_t milliseconds) {
        return CCyControlEndPoint::Header({}, 0, milliseconds).timeoutSeconds;
    };
    EXPECT_EQ(seconds(0), 0u);
    EXPECT_EQ(seconds(1), 1u);
    EXPECT_EQ(seconds(999), 1u);
    EXPECT_EQ(seconds(1'000), 1u);
    EXPECT_EQ(seconds(1'999), 1u);
    EXPECT_EQ(seconds(10'000), 10u);
    ConnectAll();
    Control().SetTimeout(2'500);
    Bytes bytes;
    EXPECT_TRUE(Transfer({}, bytes));
    EXPECT_EQ(bus.Count(0).setupTimeout, 2u);
}

TEST_F(EndpointKinds, AControlReadBringsTheDataBack)
{
    ConnectAll();
    CCyControlEndPoint::Request request;
    Bytes bytes = Pattern(20);
    EXPECT_TRUE(Transfer(request, bytes));
    EXPECT_FALSE(Control().IsIn());
    request.direction = CCyControlEndPoint::Direction::FromDevice;
    Bytes read(50);
    EXPECT_TRUE(Transfer(request, read));
    EXPECT_TRUE(Control().IsIn()) << "follows the direction of the request";
    EXPECT_EQ(read, Pattern(20)) << "as much as there was";
}

TEST_F(EndpointKinds, AControlRequestForMoreThanItsLengthFieldHoldsIsRefused)
{
    ConnectAll();
    Bytes bytes(65'536);
    EXPECT_EQ(Control().BeginDataXfer(bytes.data(), 65'536, &overlapped), nullptr);
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(EndpointKinds, AControlRequestOnAClosedDeviceDoesNotBegin)
{
    CCyControlEndPoint closed(INVALID_HANDLE_VALUE, {});
    EXPECT_EQ(closed.BeginDataXfer(nullptr, 0, &overlapped), nullptr);
}

TEST_F(EndpointKinds, AnInterruptEndpointReadsDirectlyAndBuffered)
{
    ConnectAll();
    CCyUSBEndPoint& interrupt = *Endpoint(0x81);
    for (const bool direct : {true, false}) {
        interrupt.SetDirect(direct);
        Bytes bytes(8);
        usb::RequestBlock* const context = interrupt.BeginDataXfer(bytes.data(), 8, &overlapped);
        EXPECT_EQ(context->Bytes().size(), direct ? 38u : 46u);
        bus.Feed(0, 0x81, Pattern(5));
        EXPECT_TRUE(Finish(interrupt, context, bytes));
        EXPECT_EQ(bytes, Pattern(5));
    }
}

TEST_F(EndpointKinds, AnIsochronousTransferHasARecordForEachPacket)
{
    ConnectAll();
    CCyIsocEndPoint& endpoint = Isochronous(0x83);
    EXPECT_EQ(endpoint.PacketsOf(0), 0u);
    EXPECT_EQ(endpoint.PacketsOf(1), 1u);
    EXPECT_EQ(endpoint.PacketsOf(100), 1u);
    EXPECT_EQ(endpoint.PacketsOf(101), 2u);
    Bytes bytes(250);
    usb::RequestBlock* const context = endpoint.BeginDataXfer(bytes.data(), 250, &overlapped);
    const usb::TransferHeader header = context->Header();
    EXPECT_EQ(header.endpointAddress, 0x83);
    EXPECT_EQ(Copy(header.isoPacketOffset), 38u);
    EXPECT_EQ(Copy(header.isoPacketLength), 3u * 8u);
    EXPECT_EQ(Copy(header.dataOffset), 0u) << "the data is not in the block";
    bus.Feed(0, 0x83, Pattern(120));
    EXPECT_TRUE(Finish(endpoint, context, bytes));
    EXPECT_EQ(bytes, Pattern(120));
}

TEST_F(EndpointKinds, ABufferedIsochronousTransferBringsDataAndRecordsBack)
{
    ConnectAll();
    CCyIsocEndPoint& endpoint = Isochronous(0x83);
    endpoint.SetDirect(false);
    Bytes bytes(250);
    usb::RequestBlock* const context = endpoint.BeginDataXfer(bytes.data(), 250, &overlapped);
    EXPECT_EQ(Copy(context->Header().dataOffset), 38u + 24u);
    bus.Feed(0, 0x83, Pattern(120));
    usb::IsoPacketRecord records[5] = {{9, 9}, {9, 9}, {9, 9}, {9, 9}, {9, 9}};
    EXPECT_TRUE(Finish(endpoint, context, bytes, records));
    EXPECT_EQ(bytes, Pattern(120));
    EXPECT_EQ(Copy(records[0].length), 120u) << "the simulated driver has all in one packet";
    EXPECT_EQ(Copy(records[2].length), 0u);
    EXPECT_EQ(Copy(records[3].length), 9u) << "no record after those of the transfer";
}

TEST_F(EndpointKinds, AnIsochronousWriteGoesBothWays)
{
    ConnectAll();
    CCyIsocEndPoint& endpoint = Isochronous(0x04);
    for (const bool direct : {true, false}) {
        endpoint.SetDirect(direct);
        Bytes bytes = Pattern(230);
        EXPECT_TRUE(Finish(endpoint, endpoint.BeginDataXfer(bytes.data(), 230, &overlapped), bytes));
        EXPECT_EQ(bytes.size(), 230u);
        EXPECT_EQ(bus.TakeWritten(0, 0x04)->bytes, Pattern(230));
    }
}

TEST_F(EndpointKinds, AnIsochronousEndpointWithoutAPacketSizeTakesAllInOne)
{
    CCyIsocEndPoint endpoint(INVALID_HANDLE_VALUE, {});
    EXPECT_EQ(endpoint.PacketsOf(1'000'000), 1u);
    EXPECT_EQ(endpoint.BeginDataXfer(nullptr, 0, &overlapped), nullptr);
}

} // namespace usbtest
