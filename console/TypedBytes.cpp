#include "console/TypedBytes.h"

#include <charconv>
#include <stdexcept>
#include <string>

namespace console {

namespace {

std::uint8_t HexByte(std::string_view digits)
{
    std::uint8_t byte = 0;
    const char* const end = digits.data() + digits.size();
    if (digits.size() != 2 || std::from_chars(digits.data(), end, byte, 16).ptr != end) {
        throw std::invalid_argument("'" + std::string(digits) + "' is not a byte of two hex digits");
    }
    return byte;
}

} // namespace

std::vector<std::uint8_t> BytesOfHex(std::string_view digits)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        bytes.push_back(HexByte(digits.substr(at, 2)));
    }
    return bytes;
}

std::vector<std::uint8_t> BytesOfText(std::string_view text)
{
    constexpr std::string_view Escaped = "rnt0\\\"";
    constexpr std::string_view Meant("\r\n\t\0\\\"", Escaped.size());
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            bytes.push_back(static_cast<std::uint8_t>(text[at]));
        } else if (text.substr(++at).starts_with('x')) {
            bytes.push_back(HexByte(text.substr(at + 1, 2)));
            at += 2;
        } else if (const std::size_t known = at < text.size() ? Escaped.find(text[at]) : Escaped.npos;
                   known != Escaped.npos)
        {
            bytes.push_back(static_cast<std::uint8_t>(Meant[known]));
        } else {
            throw std::invalid_argument("a text knows only \\r \\n \\t \\0 \\\\ \\\" and \\xHH");
        }
    }
    return bytes;
}

} // namespace console
