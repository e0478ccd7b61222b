// The instrument over USB: found among the devices, written by the command thread, read by a thread of its own.
#pragma once

#include "firmware/FirmwareDownloader.h"
#include "transport/Connection.h"
#include "transport/Link.h"
#include "transport/ReadThreads.h"
#include "usb/BulkTransfer.h"
#include "usb/DeviceControl.h"
#include "usb/UsbDevice.h"

#include <cstdint>
#include <string>

/// The IN endpoint is lent to the read thread, which is joined before the device is closed.
class UsbLink final : public ILink
{
public:
    static constexpr Traits LinkTraits{
        .texts = UsbCommandTexts, .abortsWrites = true, .watchesHosts = true, .tracesBufferSize = false};

    /// All are borrowed. Opens the first device. Throws std::bad_alloc.
    UsbLink(Connection& connection, Replies& replies, IProducts& products, FirmwareDownloader& firmware);
    /// A thread that ends because no host program is left still has its connection; a stopped one has none any
    /// more.
    ~UsbLink() override;

    const Traits& GetTraits() const noexcept override { return LinkTraits; }
    bool Open() override;
    bool BeginReading() override { return m_readThreads.StartReading(m_endpoints.in); }
    void StopReading() override { m_readThreads.Stop(); }
    void Close() override;

    bool CanWrite() const noexcept override { return m_endpoints.out != nullptr && !m_writeInFlight; }
    bool IsWriting() const noexcept override { return m_endpoints.out != nullptr && m_writeInFlight; }
    void BeginWrite(std::unique_ptr<CSerialPortCommand> packet) override;
    std::optional<TransferEnd> FinishWrite() override;
    void AbortWrite() noexcept override;

    void FinishRead() override {}

    HANDLE ReadEvent() const noexcept override { return nullptr; }
    HANDLE WriteEvent() const noexcept override { return m_write.EventHandle(); }
    win32::Expectation ExpectRead() const noexcept override { return win32::Expectation::Never; }
    win32::Expectation ExpectWrite() const noexcept override
    {
        return m_write.IsUnderWay() ? win32::Expectation::NotYet : win32::Expectation::Never;
    }

private:
    /// The bulk endpoints of one device and their places in its list.
    struct Endpoints
    {
        CCyUSBEndPoint* in = nullptr;
        CCyUSBEndPoint* out = nullptr;
        CCyUSBEndPoint* secondIn = nullptr; // kept, never read from
        int inIndex = 0;
        int outIndex = 0;
    };

    /// A supported device of a scan. Recognised by its path: another enumeration may have another device at its
    /// index.
    struct Choice
    {
        std::uint8_t index;
        std::string path;
    };

    void ScanDevices();
    bool Query(std::uint8_t index);
    void ReopenChosen(const Choice& chosen);
    void ReleaseEndpoints();
    static Endpoints ChooseEndpoints(const UsbDevice& device);

    IProducts& m_products;
    FirmwareDownloader& m_firmware;

    usb::CallLimits m_limits; // of the command thread and the read thread
    UsbDevice m_device;
    Endpoints m_endpoints; // of m_device; valid until it closes
    usb::BulkTransfer m_write;
    // Also after a failure without an error: the write is then aborted like a stuck one.
    bool m_writeInFlight = false;
    ReadThreads m_readThreads; // last: they use what stands above
};
