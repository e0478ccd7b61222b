#include "tools/RouterLog/log/LineGrammar.h"

#include "tools/RouterLog/log/LogTime.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

namespace routerlog {

namespace {

/// Takes a number from the beginning of `text`; false when there is none or it exceeds 32 bits, in which
/// the router has all its numbers.
bool TakeNumber(std::string_view& text, int base, std::int64_t& number) noexcept
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || number < std::numeric_limits<std::int32_t>::min() ||
        number > std::numeric_limits<std::uint32_t>::max())
    {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

} // namespace

LineGrammar::LineGrammar()
{
    for (const TraceFormat& format : TraceFormats()) {
        m_entries.push_back(Prepare(format));
    }
    // Of several with one prefix that which takes any text stands first: it is tried last.
    std::ranges::sort(m_entries, {}, [](const Entry& entry) {
        const bool anyText = !entry.rest.empty() && entry.rest.front().kind == Piece::Kind::Text;
        return std::pair(entry.prefix, !anyText);
    });
    // Everything that stands between a prefix and a text that begins with it, begins with it too. So the entries
    // whose prefixes a text has are the last one not greater than the text and its chain of parents.
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        for (int j = static_cast<int>(i) - 1; j >= 0 && m_entries[i].parent < 0; --j) {
            if (m_entries[i].prefix.starts_with(m_entries[static_cast<std::size_t>(j)].prefix)) {
                m_entries[i].parent = j;
            }
        }
    }
}

const LineGrammar& LineGrammar::Instance()
{
    static const LineGrammar grammar;
    return grammar;
}

LineGrammar::Entry LineGrammar::Prepare(const TraceFormat& format)
{
    Entry entry;
    entry.format = &format;
    std::string_view rest = format.format;
    entry.prefix = rest.substr(0, std::min(rest.find('%'), rest.size()));
    rest.remove_prefix(entry.prefix.size());
    while (!rest.empty()) {
        if (rest.front() == '%') {
            std::size_t end = 1;
            while (IsDigit(rest[end]) || rest[end] == 'l') {
                ++end;
            }
            const char conversion = rest[end];
            entry.rest.push_back({conversion == 's'   ? Piece::Kind::Text
                                  : conversion == 'X' ? Piece::Kind::Hex
                                                      : Piece::Kind::Number,
                                  {}});
            rest.remove_prefix(end + 1);
        } else {
            const std::size_t length = std::min(rest.find('%'), rest.size());
            entry.rest.push_back({Piece::Kind::Literal, rest.substr(0, length)});
            rest.remove_prefix(length);
        }
    }
    return entry;
}

LineMatch LineGrammar::Match(std::string_view text) const noexcept
{
    const auto greater = std::ranges::upper_bound(m_entries, text, {}, &Entry::prefix);
    for (int i = static_cast<int>(greater - m_entries.begin()) - 1; i >= 0;) {
        const Entry& entry = m_entries[static_cast<std::size_t>(i)];
        LineMatch match;
        if (text.starts_with(entry.prefix) && MatchFrom(entry.rest, 0, text.substr(entry.prefix.size()), match, 0))
        {
            match.format = entry.format;
            return match;
        }
        i = entry.parent;
    }
    return {};
}

bool LineGrammar::MatchFrom(const std::vector<Piece>& pieces, std::size_t at, std::string_view text,
                            LineMatch& match, std::size_t value) noexcept
{
    for (; at < pieces.size(); ++at) {
        const Piece& piece = pieces[at];
        switch (piece.kind) {
        case Piece::Kind::Literal:
            if (!text.starts_with(piece.literal)) {
                return false;
            }
            text.remove_prefix(piece.literal.size());
            break;
        case Piece::Kind::Number:
        case Piece::Kind::Hex:
            if (!TakeNumber(text, piece.kind == Piece::Kind::Hex ? 16 : 10, match.values[value++].number)) {
                return false;
            }
            break;
        case Piece::Kind::Text:
            if (at + 1 == pieces.size()) {
                match.values[value].text = text;
                return true;
            }
            // A name may hold what follows it in the format, so each place is tried.
            for (std::size_t end = text.find(pieces[at + 1].literal); end != std::string_view::npos;
                 end = text.find(pieces[at + 1].literal, end + 1))
            {
                match.values[value].text = text.substr(0, end);
                if (MatchFrom(pieces, at + 1, text.substr(end), match, value + 1)) {
                    return true;
                }
            }
            return false;
        }
    }
    return text.empty();
}

} // namespace routerlog
