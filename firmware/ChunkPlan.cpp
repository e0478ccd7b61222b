#include "firmware/ChunkPlan.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

constexpr std::string_view Prefix = "DOWNLOAD ";

// With its terminating zero, 15 bytes. The instrument's bootloader expects them all.
constexpr char ClosingMessage[] = "DOWNLOAD_DONE\r";

std::uint32_t EvenRoom(std::int32_t chunkSize) noexcept
{
    const std::int64_t room = std::int64_t{chunkSize} - static_cast<std::int64_t>(Prefix.size());
    return room >= 2 ? static_cast<std::uint32_t>(room) & ~1U : 0;
}

} // namespace

ChunkPlan::ChunkPlan(FirmwareImagePtr image, std::int32_t chunkSize) noexcept
    : m_Image(std::move(image)), m_Room(EvenRoom(chunkSize)), m_bClosing(true)
{
}

std::uint32_t ChunkPlan::SizeAt(std::uint32_t offset) const noexcept
{
    return m_Image && offset < m_Image->size ? std::min(m_Room, m_Image->size - offset) : 0;
}

bool ChunkPlan::Take(std::vector<std::uint8_t>& message)
{
    message.clear();
    if (const std::uint32_t size = SizeAt(m_Offset); size != 0) {
        const std::uint8_t* const data = m_Image->bytes.get() + m_Offset;
        message.reserve(Prefix.size() + size);
        message.assign(Prefix.begin(), Prefix.end());
        message.insert(message.end(), data, data + size);
        m_Offset += size;
        return true;
    }
    if (m_bClosing) {
        message.assign(std::begin(ClosingMessage), std::end(ClosingMessage));
        m_bClosing = false;
        m_Image.reset();
        return true;
    }
    return false;
}
