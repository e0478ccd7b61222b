// An interrupt endpoint.
#pragma once

#include "usb/CCyUSBEndPoint.h"

class CCyInterruptEndPoint : public CCyUSBEndPoint
{
public:
    using CCyUSBEndPoint::CCyUSBEndPoint;

    usb::RequestBlock* BeginDataXfer(std::uint8_t* buffer, std::uint32_t length, OVERLAPPED* overlapped) override;
};
