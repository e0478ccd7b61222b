// The block that one request to the driver is described in.
#pragma once

#include "win32/Windows.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace usb {

#pragma pack(push, 1)
/// As the driver reads and fills it; little-endian, the same for 32- and 64-bit programs. Data of buffered and
/// control requests follows at `dataOffset`.
struct TransferHeader
{
    std::uint8_t requestType; // the setup packet of a control request, zero otherwise
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t setupLength;
    std::uint32_t timeoutSeconds; // control requests only
    std::uint8_t reserved;
    std::uint8_t endpointAddress;
    std::uint32_t ntStatus;   // filled by the driver
    std::uint32_t usbdStatus; // filled by the driver
    std::uint32_t isoPacketOffset;
    std::uint32_t isoPacketLength;
    std::uint32_t dataOffset;
    std::uint32_t dataLength;
};

/// One packet of an isochronous transfer.
struct IsoPacketRecord
{
    std::uint32_t usbdStatus;
    std::uint32_t length;
};
#pragma pack(pop)

static_assert(sizeof(TransferHeader) == 38);
static_assert(offsetof(TransferHeader, requestType) == 0);
static_assert(offsetof(TransferHeader, request) == 1);
static_assert(offsetof(TransferHeader, value) == 2);
static_assert(offsetof(TransferHeader, index) == 4);
static_assert(offsetof(TransferHeader, setupLength) == 6);
static_assert(offsetof(TransferHeader, timeoutSeconds) == 8);
static_assert(offsetof(TransferHeader, reserved) == 12);
static_assert(offsetof(TransferHeader, endpointAddress) == 13);
static_assert(offsetof(TransferHeader, ntStatus) == 14);
static_assert(offsetof(TransferHeader, usbdStatus) == 18);
static_assert(offsetof(TransferHeader, isoPacketOffset) == 22);
static_assert(offsetof(TransferHeader, isoPacketLength) == 26);
static_assert(offsetof(TransferHeader, dataOffset) == 30);
static_assert(offsetof(TransferHeader, dataLength) == 34);
static_assert(sizeof(IsoPacketRecord) == 8);

inline constexpr std::uint32_t TransferHeaderSize = sizeof(TransferHeader);

/// The context of one transfer. The driver may write into its bytes until the request has completed, so it must
/// neither move nor be freed before. A direct request's block is the bare header and costs one allocation.
class RequestBlock
{
public:
    /// Zeroed: the header and `trailing` bytes after it.
    explicit RequestBlock(std::size_t trailing = 0);
    RequestBlock(const RequestBlock&) = delete;
    RequestBlock& operator=(const RequestBlock&) = delete;

    TransferHeader Header() const noexcept;
    void SetHeader(const TransferHeader& header) noexcept;

    std::span<std::uint8_t> Bytes() noexcept;
    std::span<const std::uint8_t> Bytes() const noexcept;

    /// Up to `length` bytes at `offset`, never outside the block, whatever was asked for.
    std::span<std::uint8_t> Part(std::size_t offset, std::size_t length) noexcept;

    /// Why Windows refused the request at once, as an error code, which may be 0; such a request never completes
    /// and never sets its event. None: it was accepted.
    std::optional<DWORD> refusal;

    /// The bytes returned by a request that was complete as soon as it was started. For such a one neither event
    /// nor GetOverlappedResult is promised ("Named Pipe Server Using Overlapped I/O"), so the start's own answer
    /// counts. None: it was refused, or is pending.
    std::optional<DWORD> returnedAtOnce;

    /// Whether the end of the request is still to come, or was told by the OVERLAPPED.
    bool IsPending() const noexcept { return !refusal && !returnedAtOnce; }

private:
    std::array<std::uint8_t, TransferHeaderSize> m_header{};
    std::vector<std::uint8_t> m_long; // instead of m_header, when something follows it
};

} // namespace usb
