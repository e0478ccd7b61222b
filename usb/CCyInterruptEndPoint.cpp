#include "usb/CCyInterruptEndPoint.h"

usb::RequestBlock* CCyInterruptEndPoint::BeginDataXfer(std::uint8_t* buffer, std::uint32_t length,
                                                       OVERLAPPED* overlapped)
{
    return BeginPreferredXfer(buffer, length, overlapped);
}
