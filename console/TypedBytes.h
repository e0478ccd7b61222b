// Bytes as people type them. Portable.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace console {

/// Bytes of hex digits, two a byte. Throws std::invalid_argument with what is wrong in one line.
std::vector<std::uint8_t> BytesOfHex(std::string_view digits);

/// What \r \n \t \0 \\ \" and \xHH in `text` stand for. Throws the same.
std::vector<std::uint8_t> BytesOfText(std::string_view text);

} // namespace console
