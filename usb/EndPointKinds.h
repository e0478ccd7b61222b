// The kinds of endpoints.
#pragma once

#include "usb/CCyUSBEndPoint.h"

/// Each transfer carries a setup packet.
class CCyControlEndPoint : public CCyUSBEndPoint
{
public:
    enum class Target : std::uint8_t { Device = 0, Interface = 1, Endpoint = 2, Other = 3 };
    enum class RequestType : std::uint8_t { Standard = 0, Class = 1, Vendor = 2 };
    enum class Direction : std::uint8_t { ToDevice = 0, FromDevice = 1 };

    /// What a transfer asks for.
    struct Request
    {
        Target target = Target::Device;
        RequestType type = RequestType::Vendor;
        Direction direction = Direction::ToDevice;
        std::uint8_t code = 0;
        std::uint16_t value = 0;
        std::uint16_t index = 0;
    };

    using CCyUSBEndPoint::CCyUSBEndPoint;

    /// A setup packet counts its data in 16 bits: null and ERROR_INVALID_PARAMETER for more than 65,535 bytes.
    usb::RequestBlock* BeginDataXfer(std::uint8_t* buffer, std::uint32_t length, OVERLAPPED* overlapped) override;

    void SetRequest(const Request& request) noexcept { m_request = request; }

    /// The header of a control request with `length` bytes of data after it.
    static usb::TransferHeader Header(const Request& request, std::uint16_t length,
                                      std::uint32_t timeoutMilliseconds) noexcept;

private:
    Request m_request;
};

namespace usb {

/// What the kinds other than control share: a transfer starts directly or buffered, as the endpoint's flag says.
class DataEndPoint : public CCyUSBEndPoint
{
public:
    using CCyUSBEndPoint::CCyUSBEndPoint;

    RequestBlock* BeginDataXfer(std::uint8_t* buffer, std::uint32_t length, OVERLAPPED* overlapped) override;
};

} // namespace usb

class CCyBulkEndPoint : public usb::DataEndPoint
{
public:
    using DataEndPoint::DataEndPoint;
};

class CCyInterruptEndPoint : public usb::DataEndPoint
{
public:
    using DataEndPoint::DataEndPoint;
};

/// Its blocks carry one record per packet.
class CCyIsocEndPoint : public usb::DataEndPoint
{
public:
    using DataEndPoint::DataEndPoint;

    usb::RequestBlock* BeginDirectXfer(std::uint8_t* buffer, std::uint32_t length,
                                       OVERLAPPED* overlapped) override;
    usb::RequestBlock* BeginBufferedXfer(std::uint8_t* buffer, std::uint32_t length,
                                         OVERLAPPED* overlapped) override;

    /// Packets that `length` bytes make on this endpoint, and so the records of such a transfer.
    std::uint32_t PacketsOf(std::uint32_t length) const noexcept;

private:
    usb::TransferHeader HeaderOf(std::uint32_t length) const noexcept;
};
