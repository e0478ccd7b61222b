// Packet dumps, both ways: what the router writes is read again as the same bytes, and any text as a dump ends.
//
// Input: a byte of settings, two of the limit, then the bytes.
#include "trace/PacketText.h"
#include "tests/fuzz/Choices.h"
#include "tools/RouterLog/log/DumpText.h"

#include <algorithm>
#include <string>

namespace fuzz {

namespace {

/// What the router traces comes back, as far as the limit lets it.
void CheckWritten(Input bytes, std::uint32_t limit, bool hexOnly)
{
    const std::string before = "PCR<-USB[3] ";
    std::string text = before;
    AppendPacketText(bytes.data(), static_cast<std::uint32_t>(bytes.size()), limit, hexOnly, text);
    Check(text.starts_with(before), "a dump is appended");
    const std::string_view dump = std::string_view(text).substr(before.size());
    const std::size_t traced = std::min<std::size_t>(bytes.size(), limit);
    Check(dump.size() <= 3 * traced + 7, "a dump has at most three characters a byte");
    Check(dump.ends_with(" ~more~") == (bytes.size() >= limit), "a dump of the limit or more says so");
    Check(std::ranges::all_of(dump, [](char c) { return c >= ' ' && c < 0x7F; }), "a dump can be read");

    routerlog::DumpedBytes parsed;
    routerlog::ParseDump(dump, false, parsed);
    Check(parsed.wellFormed, "what the router wrote is well formed");
    Check(std::ranges::equal(parsed.bytes, bytes.first(traced)), "and holds the same bytes");
}

/// A line that was cut anywhere shows the first bytes, and none that is not there.
void CheckCut(Input bytes, std::size_t at, bool hexOnly)
{
    std::string text;
    AppendPacketText(bytes.data(), static_cast<std::uint32_t>(bytes.size()), 0xFFFFFFFF, hexOnly, text);
    text.resize(std::min(at, text.size()));
    routerlog::DumpedBytes parsed;
    routerlog::ParseDump(text, true, parsed);
    Check(parsed.wellFormed, "a cut dump is well formed");
    Check(parsed.bytes.size() <= bytes.size() &&
              std::equal(parsed.bytes.begin(), parsed.bytes.end(), bytes.begin()),
          "a cut dump shows the first bytes");
}

/// Any text.
void CheckRead(std::string_view text, bool fullLine)
{
    routerlog::DumpedBytes parsed;
    routerlog::ParseDump(text, fullLine, parsed);
    Check(parsed.bytes.size() <= (text.size() + 1) / 2, "no more bytes than the text has room for");
    std::string anew;
    AppendPacketText(parsed.bytes.data(), static_cast<std::uint32_t>(parsed.bytes.size()), 0xFFFFFFFF, false,
                     anew);
    routerlog::DumpedBytes again;
    routerlog::ParseDump(anew, false, again);
    Check(again.wellFormed && again.bytes == parsed.bytes, "written anew they are the same bytes");
}

} // namespace

void PacketText(Input input)
{
    Choices choices(input);
    const std::uint8_t settings = choices.Byte();
    const std::uint32_t limit = choices.Word();
    const Input bytes = choices.Rest();
    const bool hexOnly = (settings & 1) != 0;
    CheckWritten(bytes, settings & 2 ? limit : limit % 100, hexOnly);
    CheckCut(bytes, limit, hexOnly);
    CheckRead({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, (settings & 4) != 0);
}

} // namespace fuzz
