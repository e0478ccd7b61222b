// The block that one request to the driver is described in.
#pragma once

#include "win32/Windows.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

namespace usb {

#pragma pack(push, 1)
/// As the driver reads and fills it; little-endian, the same for 32- and 64-bit programs. Data of buffered and
/// control requests follows at `dataOffset`.
struct TransferHeader
{
    std::uint8_t requestType = 0; // the setup packet of a control request, zero otherwise
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t setupLength = 0;
    std::uint32_t timeoutSeconds = 0; // control requests only
    std::uint8_t reserved = 0;
    std::uint8_t endpointAddress = 0;
    std::uint32_t ntStatus = 0;   // filled by the driver
    std::uint32_t usbdStatus = 0; // filled by the driver
    std::uint32_t isoPacketOffset = 0;
    std::uint32_t isoPacketLength = 0;
    std::uint32_t dataOffset = 0;
    std::uint32_t dataLength = 0;
};

/// One packet of an isochronous transfer.
struct IsoPacketRecord
{
    std::uint32_t usbdStatus;
    std::uint32_t length;
};
#pragma pack(pop)

static_assert(sizeof(TransferHeader) == 38);
static_assert(offsetof(TransferHeader, ntStatus) == 14);
static_assert(offsetof(TransferHeader, dataLength) == 34);
static_assert(sizeof(IsoPacketRecord) == 8);

inline constexpr std::uint32_t TransferHeaderSize = sizeof(TransferHeader);

/// The context of one transfer. The driver may write into its bytes until the request has completed, so it must
/// neither move nor be freed before. A direct request's block is the bare header and costs one allocation.
class RequestBlock
{
public:
    /// `header` and `trailing` zeros after it.
    explicit RequestBlock(const TransferHeader& header = {}, std::size_t trailing = 0)
        : m_long(trailing != 0 ? TransferHeaderSize + trailing : 0),
          m_bytes(trailing != 0 ? std::span<std::uint8_t>(m_long) : std::span<std::uint8_t>(m_header))
    {
        std::memcpy(m_bytes.data(), &header, sizeof header);
    }
    RequestBlock(const RequestBlock&) = delete;
    RequestBlock& operator=(const RequestBlock&) = delete;

    TransferHeader Header() const noexcept
    {
        TransferHeader header;
        std::memcpy(&header, m_bytes.data(), sizeof header);
        return header;
    }

    std::span<std::uint8_t> Bytes() const noexcept { return m_bytes; }

    /// Up to `length` bytes at `offset`, never outside the block, whatever was asked for.
    std::span<std::uint8_t> Part(std::size_t offset, std::size_t length) const noexcept
    {
        const std::span<std::uint8_t> rest = m_bytes.subspan(std::min(offset, m_bytes.size()));
        return rest.first(std::min(length, rest.size()));
    }

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
    std::span<std::uint8_t> m_bytes;  // the one of them that is used
};

} // namespace usb
