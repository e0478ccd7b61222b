// Numbers of the binary files that RouterLog writes. Portable.
#pragma once

#include <cstdint>
#include <string>

namespace routerlog {

/// The lower 16 bits of `value`, low byte first. Any thread.
inline void Put16(std::string& out, std::uint32_t value)
{
    out += static_cast<char>(value & 0xFF);
    out += static_cast<char>(value >> 8 & 0xFF);
}

/// Low byte first. Any thread.
inline void Put32(std::string& out, std::uint32_t value)
{
    Put16(out, value & 0xFFFF);
    Put16(out, value >> 16);
}

} // namespace routerlog
