// Any bytes as logs: RouterLog's explain, export and its logs without payloads come to an end, within their
// bounds.
#include "tests/fuzz/Target.h"
#include "tests/routerlog/portable/Json.h"
#include "tests/routerlog/portable/Logs.h"
#include "tools/RouterLog/capture/PacketExport.h"
#include "tools/RouterLog/log/Payloads.h"
#include "tools/RouterLog/report/HtmlReport.h"
#include "tools/RouterLog/report/JsonReport.h"
#include "tools/RouterLog/report/TextReport.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace fuzz {

namespace {

using namespace routerlog;
using routerlogtest::TextSource;

std::uint64_t LinesOf(std::string_view text)
{
    const auto ends = static_cast<std::uint64_t>(std::ranges::count(text, '\n'));
    return ends + (text.empty() || text.back() == '\n' ? 0 : 1);
}

void CheckAccount(const Account& account, std::string_view text)
{
    const std::uint64_t lines = LinesOf(text);
    Check(account.Lines() <= lines, "no more lines than there are");
    Check(account.ForeignLineCount() <= account.Lines(), "a line that the router did not write is a line");
    Check(account.ForeignLines().size() <= Account::ForeignLinesKept, "of those only a few are kept");
    std::uint64_t counted = 0;
    for (std::size_t each = 0; each < TraceClassCount; ++each) {
        counted += account.Use(static_cast<TraceClass>(each)).lines;
    }
    Check(counted <= account.Lines(), "a line is of one class");
    for (const Incident& incident : account.Incidents().InOrder()) {
        Check(incident.where.file < account.Files().size(), "an incident stands in a file");
        Check(incident.where.line <= account.Files()[incident.where.file].lines, "on one of its lines");
    }
    std::uint64_t packets = 0;
    for (const auto& [port, row] : account.Ports().Course().Rows()) {
        for (const TrafficTimeline::Cell& cell : row) {
            Check(cell.answers <= cell.replies, "an answer is a reply");
            packets += cell.requests + cell.replies;
        }
    }
    Check(packets <= account.Lines(), "no more packets than lines");
}

void CheckExplain(std::string_view text)
{
    Account account;
    const std::size_t half = text.size() / 2;
    for (const std::string_view part : {text.substr(0, half), text.substr(half)}) {
        TextSource source(part, 1 + text.size() % 100);
        account.TakeFile("fuzz.log", source);
    }
    account.Finish();
    Account whole;
    TextSource source(text);
    whole.TakeFile("fuzz.log", source);
    whole.Finish();
    CheckAccount(whole, text);
    Check(!TextReport(account).empty(), "there is something to say of every log");
    Check(HtmlReport(account, {}).ends_with("</html>\n"), "a page is whole");
    Check(routerlogtest::JsonText(JsonReport(account)).IsValid(), "JSON is JSON");
}

std::uint32_t Number32(std::string_view bytes)
{
    std::uint32_t number = 0;
    for (std::size_t at = 4; at-- > 0;) {
        number = number << 8 | static_cast<std::uint8_t>(bytes[at]);
    }
    return number;
}

/// Walks the blocks of a capture file; returns how many are packets of USB or ports.
std::uint64_t PacketsOf(std::string_view capture)
{
    constexpr std::uint32_t EnhancedPacket = 6;
    constexpr std::uint32_t Events = 2; // the third interface, whose records are texts
    std::uint64_t packets = 0;
    while (!capture.empty()) {
        Check(capture.size() >= 12, "a block has a head and an end");
        const std::uint32_t length = Number32(capture.substr(4));
        Check(length >= 12 && length % 4 == 0 && length <= capture.size(), "a block lies inside the file");
        Check(Number32(capture.substr(length - 4)) == length, "a block's length stands at both ends");
        if (Number32(capture) == EnhancedPacket) {
            Check(length >= 32, "a packet has its fields");
            const std::uint32_t captured = Number32(capture.substr(20));
            Check(captured + 32u <= length, "a packet's bytes lie inside its block");
            Check(captured <= Number32(capture.substr(24)), "no more bytes captured than the packet had");
            packets += Number32(capture.substr(8)) != Events ? 1 : 0;
        }
        capture.remove_prefix(length);
    }
    return packets;
}

void CheckExport(std::string_view text)
{
    std::string capture;
    PacketExport packets([&capture](std::string_view bytes) { capture += bytes; });
    TextSource source(text);
    packets.TakeFile(source);
    Check(packets.Packets() <= LinesOf(text), "no more packets than lines");
    Check(packets.Cut() <= packets.Packets(), "a cut packet is a packet");
    Check(packets.Damaged() <= LinesOf(text), "no more damaged ones than lines");
    Check(PacketsOf(capture) == packets.Packets(), "as many packets written as told");
}

void CheckWithoutPayloads(std::string_view text)
{
    TextSource source(text);
    const std::string stripped = WithoutPayloads(source, ~std::uint64_t{0});
    Check(LinesOf(stripped) == LinesOf(text), "a line without its payload is a line");
    TextSource again(text, 7);
    const std::string end = WithoutPayloads(again, 100);
    Check(end.size() <= 100 && stripped.ends_with(end), "the last bytes are the last ones");
    std::string capture;
    PacketExport packets([&capture](std::string_view bytes) { capture += bytes; });
    TextSource strippedSource(stripped);
    packets.TakeFile(strippedSource);
    Check(packets.Damaged() >= packets.Packets(), "no payload is left");
}

} // namespace

void RouterLog(Input input)
{
    const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
    CheckExplain(text);
    CheckExport(text);
    CheckWithoutPayloads(text);
}

} // namespace fuzz
