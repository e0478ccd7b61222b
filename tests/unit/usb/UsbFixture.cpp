#include "tests/unit/usb/UsbFixture.h"

namespace usbtest {

void UsbTest::Connect(const instrumentbus::Description& description)
{
    bus.Plug(0, description);
    ASSERT_TRUE(device.Open(0));
}

CCyUSBEndPoint* UsbTest::Endpoint(std::uint8_t address)
{
    for (std::size_t i = 1; i < device.EndpointCount(); ++i) {
        if (device.Endpoint(i) != nullptr && device.Endpoint(i)->Address() == address) {
            return device.Endpoint(i);
        }
    }
    return nullptr;
}

Rule UsbTest::For(std::uint8_t endpoint, std::uint32_t actions)
{
    Rule rule{};
    rule.endpoint = endpoint;
    rule.actions = actions;
    return rule;
}

Rule UsbTest::ForControl(std::uint32_t code, std::uint32_t actions)
{
    Rule rule{};
    rule.code = code;
    rule.actions = actions;
    return rule;
}

bool UsbTest::Write(usb::BulkTransfer& transfer, Bytes bytes)
{
    auto packet = std::make_unique<Bytes>(std::move(bytes));
    const std::span<const std::uint8_t> view(*packet);
    return transfer.BeginWrite(*Endpoint(Out), usb::Keep(std::move(packet)), view);
}

Outcome End(usb::BulkTransfer& transfer)
{
    EXPECT_TRUE(support::WaitFor(transfer.EventHandle()));
    EXPECT_TRUE(transfer.HasEnded());
    Outcome outcome;
    if (transfer.HasEnded()) {
        outcome.worked = transfer.Finish(outcome.length);
        outcome.lastError = ::GetLastError();
    }
    return outcome;
}

Bytes Pattern(std::size_t count, std::uint8_t seed)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 256 + seed);
    }
    return bytes;
}

} // namespace usbtest
