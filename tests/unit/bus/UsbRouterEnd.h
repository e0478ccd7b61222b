// The router's end of the simulated USB device, for tests of the program that plays it: opens it through the
// product's own usb/.
#pragma once

#include "ports/packet/ReceiveBuffer.h"
#include "tests/support/TestSupport.h"
#include "usb/BulkTransfer.h"
#include "usb/UsbDevice.h"

#include <optional>
#include <string>

/// One thread.
class UsbRouterEnd
{
public:
    struct Packet
    {
        int number;
        int deviceType;
        int port;
        std::string payload;
    };

    /// Waits until a device of that product can be found, and opens it.
    bool Open(std::uint16_t productId = 0x0100);
    void Close();
    /// Opens and closes it without any transfer, as a scan of the bus does.
    bool Look();
    /// True when no device can be found within the timeout.
    bool WaitUntilGone();

    bool Send(std::uint8_t deviceType, std::uint8_t port, const std::string& payload);

    /// The next whole packet; none when the device went first.
    std::optional<Packet> Next();
    /// What one read gives, unparsed; empty when the device went.
    std::string ReadPiece();
    std::size_t Unparsed() const { return m_received.Size(); }

private:
    bool Find(std::uint16_t productId);
    CCyUSBEndPoint* Endpoint(std::uint8_t address);

    UsbDevice m_device{nullptr, Interface, false};
    usb::BulkTransfer m_write;
    usb::BulkTransfer m_read;
    ReceiveBuffer m_received;
    std::uint8_t m_number = 0;

    static constexpr GUID Interface = {
        0x4E7B2C19, 0x8D35, 0x4A60, {0xB1, 0xF2, 0x7C, 0x9E, 0x05, 0xD3, 0xA6, 0x48}};
};
