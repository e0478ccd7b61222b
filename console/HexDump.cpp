#include "console/HexDump.h"

#include <algorithm>

namespace hexdump {

namespace {

constexpr std::size_t LineBytes = 16;
constexpr char Digits[] = "0123456789abcdef";

void AppendHex(std::string& text, std::uint64_t value, int digits)
{
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        text += Digits[value >> shift & 15];
    }
}

char Shown(std::uint8_t byte)
{
    return byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
}

} // namespace

std::string Lines(std::span<const std::uint8_t> bytes, std::string_view indent)
{
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += LineBytes) {
        const auto line = bytes.subspan(at, std::min(LineBytes, bytes.size() - at));
        text += indent;
        AppendHex(text, at, 4);
        for (std::size_t i = 0; i < LineBytes; ++i) {
            text += i % 8 == 0 ? "  " : " ";
            if (i < line.size()) {
                AppendHex(text, line[i], 2);
            } else {
                text += "  ";
            }
        }
        text += "  |";
        std::transform(line.begin(), line.end(), std::back_inserter(text), Shown);
        text += "|\n";
    }
    return text;
}

std::string Short(std::span<const std::uint8_t> bytes, std::size_t most)
{
    const auto shown = bytes.first(std::min(most, bytes.size()));
    std::string text;
    for (const std::uint8_t byte : shown) {
        AppendHex(text, byte, 2);
        text += ' ';
    }
    text += '|';
    std::transform(shown.begin(), shown.end(), std::back_inserter(text), Shown);
    text += shown.size() < bytes.size() ? "|..." : "|";
    return text;
}

} // namespace hexdump
