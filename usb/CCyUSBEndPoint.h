// An endpoint of the open USB device: starts, finishes and aborts overlapped transfers.
#pragma once

#include "usb/Descriptors.h"
#include "usb/DeviceControl.h"
#include "usb/RequestBlock.h"
#include "usb/Transfer.h"
#include "win32/Windows.h"

#include <cstdint>
#include <memory>
#include <span>

/// Belongs to its UsbDevice and dies when that closes. Each endpoint is used by one thread at a time; two
/// endpoints of a device may be used by two threads.
///
/// The calls below leave the life of block, OVERLAPPED and buffer to the caller: all three must stay until the
/// request has completed, after an Abort too. usb::BulkTransfer takes care of that and is the one to use.
class CCyUSBEndPoint
{
public:
    /// `limits` is borrowed.
    CCyUSBEndPoint(HANDLE device, const usb::EndpointDescriptor& descriptor,
                   usb::CallLimits& limits = usb::CallLimits::WithoutStop()) noexcept
        : m_device(device), m_limits(limits), m_descriptor(descriptor), m_in(descriptor.IsIn())
    {
    }

    // The order of the virtual operations is part of the interface.

    /// Starts a transfer straight between the driver and `buffer`. The context returned is the caller's until
    /// FinishDataXfer. LastError() says how the start went: 0 or ERROR_IO_PENDING, else the request was refused
    /// and the event will never be set. Refused with ERROR_NO_SYSTEM_RESOURCES while the driver keeps too many
    /// transfers of this endpoint that were aborted (AbandonedTransfers::Limit).
    virtual usb::RequestBlock* BeginDirectXfer(std::uint8_t* buffer, std::uint32_t length, OVERLAPPED* overlapped);
    /// The same through a copy of the data after the header.
    virtual usb::RequestBlock* BeginBufferedXfer(std::uint8_t* buffer, std::uint32_t length,
                                                 OVERLAPPED* overlapped);
    /// Starts a transfer the way this kind of endpoint does it; null when the device is closed.
    virtual usb::RequestBlock* BeginDataXfer(std::uint8_t* buffer, std::uint32_t length,
                                             OVERLAPPED* overlapped) = 0;

    /// Takes the result of a transfer whose event is signalled and frees the context; never waits. `length`: room
    /// in `buffer`, then the bytes transferred. True when the transfer worked and both statuses are 0.
    /// GetLastError() afterwards is what Windows reported, which may be 0, and ERROR_GEN_FAILURE for bad statuses
    /// alone. With ERROR_IO_INCOMPLETE the call came too early and the context is still the caller's.
    virtual bool FinishDataXfer(std::uint8_t* buffer, std::uint32_t& length, OVERLAPPED* overlapped,
                                usb::RequestBlock* context, std::span<usb::IsoPacketRecord> records = {}) noexcept;

    virtual ~CCyUSBEndPoint() = default;

    /// Asks the driver to end all transfers of this endpoint; whether it reported no error. Harmless when there
    /// are none. Returns within the device's limits, whatever the driver does.
    bool Abort() noexcept;

    /// Takes over a transfer that its user has given up, until the driver has released it. See Transfer.h.
    void Abandon(std::unique_ptr<usb::Transfer> transfer) noexcept { m_abandoned.Add(std::move(transfer)); }
    usb::AbandonedTransfers& Abandoned() noexcept { return m_abandoned; }

    HANDLE Device() const noexcept { return m_device; }
    const usb::EndpointDescriptor& Descriptor() const noexcept { return m_descriptor; }
    std::uint8_t Address() const noexcept { return m_descriptor.address; }
    std::uint8_t Attributes() const noexcept { return m_descriptor.attributes; }
    bool IsIn() const noexcept { return m_in; }

    std::uint32_t UsbdStatus() const noexcept { return m_usbdStatus; }
    std::uint32_t NtStatus() const noexcept { return m_ntStatus; }
    std::uint32_t BytesTransferred() const noexcept { return m_transferred; }
    DWORD LastError() const noexcept { return m_lastError; }

    std::uint32_t Timeout() const noexcept { return m_timeout; }
    void SetTimeout(std::uint32_t milliseconds) noexcept { m_timeout = milliseconds; }
    bool IsDirect() const noexcept { return m_direct; }
    void SetDirect(bool direct) noexcept { m_direct = direct; }

protected:
    /// Sends a block of `header` and its empty packet records as input, `data` as output.
    usb::RequestBlock* StartDirect(const usb::TransferHeader& header, std::span<std::uint8_t> data,
                                   OVERLAPPED* overlapped);
    /// Makes a block of `header`, which tells the data's offset, and `data`; sends it as input and output.
    usb::RequestBlock* StartBuffered(DWORD code, const usb::TransferHeader& header,
                                     std::span<const std::uint8_t> data, OVERLAPPED* overlapped);
    void SetIn(bool in) noexcept { m_in = in; }

private:
    /// Sends `block` as input of `code`; output is `output`. Keeps the outcome in the block and in this object.
    void Start(DWORD code, usb::RequestBlock& block, std::span<std::uint8_t> output,
               OVERLAPPED* overlapped) noexcept;
    void KeepStatuses(const usb::RequestBlock& block) noexcept;
    void TakeData(usb::RequestBlock& block, std::uint32_t returned, std::span<std::uint8_t> room) noexcept;
    void TakeRecords(usb::RequestBlock& block, std::span<usb::IsoPacketRecord> records) const noexcept;

    HANDLE m_device; // the device object's, INVALID_HANDLE_VALUE for none
    usb::CallLimits& m_limits;
    const usb::EndpointDescriptor m_descriptor;
    std::uint32_t m_timeout = 10000; // milliseconds
    std::uint32_t m_usbdStatus = 0;  // the last transfer's, as are the next three
    std::uint32_t m_ntStatus = 0;
    std::uint32_t m_transferred = 0;
    DWORD m_lastError = ERROR_SUCCESS;
    bool m_in;
    bool m_direct = true;
    usb::AbandonedTransfers m_abandoned;
};
