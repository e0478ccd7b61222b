#include "usb/RequestBlock.h"

#include <algorithm>
#include <cstring>

namespace usb {

RequestBlock::RequestBlock(std::size_t trailing)
{
    if (trailing != 0) {
        m_long.resize(TransferHeaderSize + trailing);
    }
}

TransferHeader RequestBlock::Header() const noexcept
{
    TransferHeader header{};
    std::memcpy(&header, Bytes().data(), sizeof header);
    return header;
}

void RequestBlock::SetHeader(const TransferHeader& header) noexcept
{
    std::memcpy(Bytes().data(), &header, sizeof header);
}

std::span<std::uint8_t> RequestBlock::Bytes() noexcept
{
    return m_long.empty() ? std::span<std::uint8_t>(m_header) : std::span<std::uint8_t>(m_long);
}

std::span<const std::uint8_t> RequestBlock::Bytes() const noexcept
{
    return m_long.empty() ? std::span<const std::uint8_t>(m_header) : std::span<const std::uint8_t>(m_long);
}

std::span<std::uint8_t> RequestBlock::Part(std::size_t offset, std::size_t length) noexcept
{
    const std::span<std::uint8_t> bytes = Bytes();
    const std::size_t begin = std::min(offset, bytes.size());
    return bytes.subspan(begin, std::min(length, bytes.size() - begin));
}

} // namespace usb
