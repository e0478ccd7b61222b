#include "tools/RouterLog/log/DumpText.h"

#include <algorithm>

namespace routerlog {

namespace {

int HexDigit(char c) noexcept
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// A byte of a dump; -1 when the token is none.
int ByteOf(std::string_view token) noexcept
{
    if (token.size() == 1) {
        return token[0] > ' ' && token[0] < 0x7F ? token[0] : -1;
    }
    if (token == "..") {
        return ' ';
    }
    if (token.size() != 2 || HexDigit(token[0]) < 0 || HexDigit(token[1]) < 0) {
        return -1;
    }
    return HexDigit(token[0]) * 16 + HexDigit(token[1]);
}

} // namespace

void ParseDump(std::string_view dump, bool lineIsFull, DumpedBytes& out)
{
    constexpr std::string_view More = "~more~";
    out.bytes.clear();
    out.wellFormed = true;
    while (!dump.empty()) {
        const std::size_t length = std::min(dump.find(' '), dump.size());
        const std::string_view token = dump.substr(0, length);
        const bool last = length == dump.size();
        // A blank precedes "~more~", so an empty token comes before it.
        if (token.empty() && More.starts_with(dump.substr(1, More.size())) &&
            (dump.size() == 1 + More.size() || lineIsFull))
        {
            return;
        }
        if (last && lineIsFull) {
            return; // cut, or whole without its blank: the line does not tell
        }
        const int byte = ByteOf(token);
        if (byte < 0) {
            out.wellFormed = false;
            return;
        }
        out.bytes.push_back(static_cast<std::uint8_t>(byte));
        dump.remove_prefix(std::min(length + 1, dump.size()));
    }
}

} // namespace routerlog
