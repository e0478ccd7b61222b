#include "usb/CCyBulkEndPoint.h"

usb::RequestBlock* CCyBulkEndPoint::BeginDataXfer(std::uint8_t* buffer, std::uint32_t length,
                                                  OVERLAPPED* overlapped)
{
    return BeginPreferredXfer(buffer, length, overlapped);
}
