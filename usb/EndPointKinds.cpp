#include "usb/EndPointKinds.h"

#include "usb/ControlCodes.h"

#include <limits>

usb::TransferHeader CCyControlEndPoint::Header(const Request& request, std::uint16_t length,
                                               std::uint32_t timeoutMilliseconds) noexcept
{
    const auto type = static_cast<unsigned>(request.direction) << 7 | static_cast<unsigned>(request.type) << 5 |
                      static_cast<unsigned>(request.target);
    const bool isBelowASecond = timeoutMilliseconds != 0 && timeoutMilliseconds < 1000;
    return {.requestType = static_cast<std::uint8_t>(type),
            .request = request.code,
            .value = request.value,
            .index = request.index,
            .setupLength = length,
            .timeoutSeconds = isBelowASecond ? 1 : timeoutMilliseconds / 1000,
            .dataOffset = usb::TransferHeaderSize,
            .dataLength = length};
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

usb::RequestBlock* usb::DataEndPoint::BeginDataXfer(std::uint8_t* buffer, std::uint32_t length,
                                                    OVERLAPPED* overlapped)
{
    if (Device() == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    return IsDirect() ? BeginDirectXfer(buffer, length, overlapped)
                      : BeginBufferedXfer(buffer, length, overlapped);
}

std::uint32_t CCyIsocEndPoint::PacketsOf(std::uint32_t length) const noexcept
{
    const std::uint32_t size = Descriptor().MaximumPacketSize();
    // An endpoint that admits to no packet size takes everything in one.
    return size == 0 ? 1 : length / size + (length % size != 0 ? 1 : 0);
}

usb::TransferHeader CCyIsocEndPoint::HeaderOf(std::uint32_t length) const noexcept
{
    return {.endpointAddress = Address(),
            .isoPacketOffset = usb::TransferHeaderSize,
            .isoPacketLength = PacketsOf(length) * static_cast<std::uint32_t>(sizeof(usb::IsoPacketRecord))};
}

usb::RequestBlock* CCyIsocEndPoint::BeginDirectXfer(std::uint8_t* buffer, std::uint32_t length,
                                                    OVERLAPPED* overlapped)
{
    return StartDirect(HeaderOf(length), {buffer, length}, overlapped);
}

usb::RequestBlock* CCyIsocEndPoint::BeginBufferedXfer(std::uint8_t* buffer, std::uint32_t length,
                                                      OVERLAPPED* overlapped)
{
    usb::TransferHeader header = HeaderOf(length);
    header.dataOffset = header.isoPacketOffset + header.isoPacketLength;
    header.dataLength = length;
    return StartBuffered(usb::ControlBufferedTransfer, header, {buffer, length}, overlapped);
}
