// How an image is cut into messages to the instrument.
#pragma once

#include "firmware/FirmwareImage.h"

#include <cstdint>
#include <vector>

/// The messages of one image that have yet to be sent: "DOWNLOAD " with data for each chunk, then the closing
/// message. A message is made when it is taken, so that a plan is as small for a million chunks as for one.
class ChunkPlan
{
public:
    /// Nothing to send.
    ChunkPlan() noexcept = default;
    /// `chunkSize` is the instrument's: any number. Each chunk carries chunkSize - 9 image bytes, rounded down to
    /// even; with room for less than 2 there is no chunk. Null image: no chunk either.
    ChunkPlan(FirmwareImagePtr image, std::int32_t chunkSize) noexcept;

    /// Where in the image the next chunk begins, in bytes.
    std::uint32_t Offset() const noexcept { return m_Offset; }
    /// Image bytes of the chunk that begins at `offset`; 0 when there is none.
    std::uint32_t SizeAt(std::uint32_t offset) const noexcept;

    /// Makes the next message in `message`, whose memory it uses again; false when none is left. Throws, and takes
    /// nothing, when memory runs out.
    bool Take(std::vector<std::uint8_t>& message);

private:
    FirmwareImagePtr m_Image;
    std::uint32_t m_Room = 0; // image bytes of each chunk but the last; 0: no chunk
    std::uint32_t m_Offset = 0;
    bool m_bClosing = false; // the closing message has yet to be sent
};
