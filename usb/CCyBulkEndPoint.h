// A bulk endpoint.
#pragma once

#include "usb/CCyUSBEndPoint.h"

class CCyBulkEndPoint : public CCyUSBEndPoint
{
public:
    using CCyUSBEndPoint::CCyUSBEndPoint;

    usb::RequestBlock* BeginDataXfer(std::uint8_t* buffer, std::uint32_t length, OVERLAPPED* overlapped) override;
};
