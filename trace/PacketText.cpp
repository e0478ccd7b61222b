#include "trace/PacketText.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace {

/// At most three characters, and their number in the last place: all four are copied, which is one instruction.
using ByteText = std::array<char, 4>;

constexpr ByteText Hex(unsigned byte)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    return {digits[byte >> 4], digits[byte & 15], ' ', 3};
}

// Not isprint: a byte is a number here and must not depend on the locale, and from 0x80 on none is a character.
constexpr ByteText Readable(unsigned byte)
{
    if (byte == ' ') {
        return {'.', '.', ' ', 3};
    }
    if (byte > ' ' && byte < 0x7F) {
        return {static_cast<char>(byte), ' ', '\0', 2};
    }
    return Hex(byte);
}

constexpr std::array<ByteText, 256> TableOf(ByteText (*textOf)(unsigned))
{
    std::array<ByteText, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        table[byte] = textOf(byte);
    }
    return table;
}

constexpr std::array<ByteText, 256> HexTable = TableOf(Hex);
constexpr std::array<ByteText, 256> ReadableTable = TableOf(Readable);
constexpr std::string_view More = " ~more~";

} // namespace

void AppendPacketText(const std::uint8_t* data, std::uint32_t length, std::uint32_t limit, bool hexOnly,
                      std::string& out)
{
    const std::array<ByteText, 256>& table = hexOnly ? HexTable : ReadableTable;
    const std::size_t count = std::min(length, limit);
    const std::size_t start = out.size();
    out.resize(start + 3 * count + 1); // the last copy may write one character too many
    char* to = out.data() + start;
    for (std::size_t i = 0; i < count; ++i) {
        const ByteText& byte = table[data[i]];
        std::memcpy(to, byte.data(), byte.size());
        to += byte.back();
    }
    out.resize(static_cast<std::size_t>(to - out.data()));
    if (length >= limit) {
        out.append(More);
    }
}
