// Bytes as text for people. Portable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace hexdump {

/// Lines of 16 bytes: offset, hex digits, characters; `indent` before each, an end of line after each.
std::string Lines(std::span<const std::uint8_t> bytes, std::string_view indent = "  ");

/// One line: the first `most` bytes as hex digits and characters, "..." when there are more.
std::string Short(std::span<const std::uint8_t> bytes, std::size_t most = 16);

} // namespace hexdump
