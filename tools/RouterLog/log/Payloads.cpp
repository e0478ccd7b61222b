#include "tools/RouterLog/log/Payloads.h"

#include "tools/RouterLog/log/LineGrammar.h"
#include "tools/RouterLog/log/LogTime.h"

namespace routerlog {

namespace {

constexpr std::string_view LeftOut = "(left out)";

std::string WithoutPayload(std::string_view line)
{
    std::string_view text = line;
    if (ParseStamp(line)) {
        text.remove_prefix(StampLength);
    }
    const LineMatch match = LineGrammar::Instance().Match(text);
    if (!match) {
        return line.empty() ? std::string()
                            : "(a line of " + std::to_string(line.size()) + " characters left out)";
    }
    std::string_view dump;
    switch (match.format->form) {
    case Form::RawWrite:
    case Form::RawRead: dump = match.Text(1); break;
    case Form::Request:
    case Form::Reply: dump = match.Text(3); break;
    default: return std::string(line);
    }
    return std::string(line.substr(0, line.size() - dump.size())).append(LeftOut);
}

} // namespace

std::string WithoutPayloads(IByteSource& source, std::uint64_t onlyLast)
{
    std::string out;
    LineReader reader(source);
    while (const auto line = reader.Next()) {
        out += WithoutPayload(line->text) + "\r\n";
        // Twice the limit is kept at most, so that the front is cut seldom.
        if (out.size() > 2 * onlyLast + LineReader::LongestLine) {
            out.erase(0, out.size() - static_cast<std::size_t>(onlyLast));
        }
    }
    if (out.size() > onlyLast) {
        out.erase(0, out.find('\n', out.size() - static_cast<std::size_t>(onlyLast)) + 1);
    }
    return out;
}

} // namespace routerlog
