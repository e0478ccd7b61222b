// A firmware image in memory.
#pragma once

#include <cstdint>
#include <memory>

/// Never changed once it is shared: a running download keeps the image it began with, whatever is loaded next.
struct FirmwareImage
{
    std::unique_ptr<std::uint8_t[]> bytes;
    std::uint32_t size = 0;
};

using FirmwareImagePtr = std::shared_ptr<const FirmwareImage>;
