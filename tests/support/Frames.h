// Device packets as tests write them.
#pragma once

#include "ports/packet/WireFormat.h"

#include <string>
#include <string_view>

namespace support {

inline std::string Frame(std::uint8_t number, std::uint8_t type, std::uint8_t x, std::uint8_t y,
                         std::string_view payload)
{
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size());
    const wire::Header header = wire::BuildHeader(number, type, x, y, payload.size());
    const wire::Trailer trailer = wire::BuildTrailer(bytes);
    std::string frame(header.begin(), header.end());
    frame.append(payload);
    frame.append(trailer.begin(), trailer.end());
    return frame;
}

} // namespace support
