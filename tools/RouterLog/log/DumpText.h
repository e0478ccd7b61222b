// Packet dumps of the log as bytes again. Portable.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace routerlog {

struct DumpedBytes
{
    std::vector<std::uint8_t> bytes; // as far as traced
    bool wellFormed = true;          // false: the text holds what no dump has; bytes stop before it
};

/// `dump` as it stands in the line. `lineIsFull` when the line has the most characters that a traced line has, so
/// that its last byte may be cut in two. The bytes may be the first of more, with or without "~more~" at the end.
void ParseDump(std::string_view dump, bool lineIsFull, DumpedBytes& out);

/// The longest text of a line, without its stamp.
inline constexpr std::size_t LongestTracedText = 2055;

} // namespace routerlog
