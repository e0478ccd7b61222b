#include "usb/CCyIsocEndPoint.h"

#include "usb/ControlCodes.h"

std::uint32_t CCyIsocEndPoint::PacketsOf(std::uint32_t length) const noexcept
{
    const std::uint32_t size = MaximumPacketSize();
    // An endpoint that admits to no packet size takes everything in one.
    return size == 0 ? 1 : length / size + (length % size != 0 ? 1 : 0);
}

usb::TransferHeader CCyIsocEndPoint::HeaderOf(std::uint32_t length) const noexcept
{
    usb::TransferHeader header{};
    header.endpointAddress = Address();
    header.isoPacketOffset = usb::TransferHeaderSize;
    header.isoPacketLength = PacketsOf(length) * static_cast<std::uint32_t>(sizeof(usb::IsoPacketRecord));
    return header;
}

usb::RequestBlock* CCyIsocEndPoint::BeginDirectXfer(std::uint8_t* buffer, std::uint32_t length,
                                                    OVERLAPPED* overlapped)
{
    const usb::TransferHeader header = HeaderOf(length);
    const std::uint32_t recordBytes =
        header.isoPacketLength; // a copy: no reference may be bound to a packed field
    auto block = std::make_unique<usb::RequestBlock>(recordBytes);
    block->SetHeader(header);
    Start(usb::ControlDirectTransfer, *block, {buffer, length}, overlapped);
    return block.release();
}

usb::RequestBlock* CCyIsocEndPoint::BeginBufferedXfer(std::uint8_t* buffer, std::uint32_t length,
                                                      OVERLAPPED* overlapped)
{
    usb::TransferHeader header = HeaderOf(length);
    header.dataOffset = header.isoPacketOffset + header.isoPacketLength;
    header.dataLength = length;
    return StartBuffered(usb::ControlBufferedTransfer, header, {buffer, length}, overlapped);
}

usb::RequestBlock* CCyIsocEndPoint::BeginDataXfer(std::uint8_t* buffer, std::uint32_t length,
                                                  OVERLAPPED* overlapped)
{
    return BeginPreferredXfer(buffer, length, overlapped);
}
