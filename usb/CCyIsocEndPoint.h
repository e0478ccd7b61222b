// An isochronous endpoint: its blocks carry one record per packet.
#pragma once

#include "usb/CCyUSBEndPoint.h"

class CCyIsocEndPoint : public CCyUSBEndPoint
{
public:
    using CCyUSBEndPoint::CCyUSBEndPoint;

    usb::RequestBlock* BeginDirectXfer(std::uint8_t* buffer, std::uint32_t length,
                                       OVERLAPPED* overlapped) override;
    usb::RequestBlock* BeginBufferedXfer(std::uint8_t* buffer, std::uint32_t length,
                                         OVERLAPPED* overlapped) override;
    usb::RequestBlock* BeginDataXfer(std::uint8_t* buffer, std::uint32_t length, OVERLAPPED* overlapped) override;

    /// Packets that `length` bytes make on this endpoint, and so the records of such a transfer.
    std::uint32_t PacketsOf(std::uint32_t length) const noexcept;

private:
    usb::TransferHeader HeaderOf(std::uint32_t length) const noexcept;
};
