#include "usb/CCyControlEndPoint.h"

#include "usb/ControlCodes.h"

#include <limits>

usb::TransferHeader CCyControlEndPoint::Header(const Request& request, std::uint16_t length,
                                               std::uint32_t timeoutMilliseconds) noexcept
{
    usb::TransferHeader header{};
    header.requestType = static_cast<std::uint8_t>(static_cast<unsigned>(request.direction) << 7 |
                                                   static_cast<unsigned>(request.type) << 5 |
                                                   static_cast<unsigned>(request.target));
    header.request = request.code;
    header.value = request.value;
    header.index = request.index;
    header.setupLength = length;
    header.timeoutSeconds =
        timeoutMilliseconds != 0 && timeoutMilliseconds < 1000 ? 1 : timeoutMilliseconds / 1000;
    header.dataOffset = usb::TransferHeaderSize;
    header.dataLength = length;
    return header;
}

usb::RequestBlock* CCyControlEndPoint::BeginDataXfer(std::uint8_t* buffer, std::uint32_t length,
                                                     OVERLAPPED* overlapped)
{
    if (Device() == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    if (length > std::numeric_limits<std::uint16_t>::max()) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    SetIn(m_request.direction == Direction::FromDevice);
    const usb::TransferHeader header = Header(m_request, static_cast<std::uint16_t>(length), Timeout());
    return StartBuffered(usb::ControlEndpointZero, header, {buffer, length}, overlapped);
}
