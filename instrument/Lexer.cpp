#include "instrument/Lexer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

namespace instrument {

namespace {

/// The number that all of `text` is; `format` is what std::from_chars takes after the value.
template <class Value, class... Format>
std::optional<Value> ValueOf(std::string_view text, Format... format)
{
    Value value{};
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, value, format...);
    return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
}

std::uint8_t HexByte(std::string_view digits)
{
    const auto byte = digits.size() == 2 ? ValueOf<std::uint8_t>(digits, 16) : std::nullopt;
    if (!byte) {
        throw ParseError("'" + std::string(digits) + "' is not a byte of two hex digits");
    }
    return *byte;
}

std::int64_t WholeNumber(std::string_view text, const char* what, std::int64_t least, std::int64_t most)
{
    const auto number = ValueOf<std::int64_t>(text);
    if (!number || *number < least || *number > most) {
        throw ParseError("'" + std::string(text) + "' is not a " + what + " (a whole number from " +
                         std::to_string(least) +
                         (most == Lexer::Most ? ")" : " to " + std::to_string(most) + ")"));
    }
    return *number;
}

/// Where the text in quotes that begins at `at` has its closing quote.
std::size_t ClosingQuote(std::string_view line, std::size_t at)
{
    std::size_t end = at + 1;
    while (end < line.size() && line[end] != '"') {
        end += line[end] == '\\' ? 2 : 1;
    }
    return end < line.size() ? end : throw ParseError("a text in quotes does not end");
}

} // namespace

Bytes BytesOfHex(std::string_view digits)
{
    Bytes bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        bytes.push_back(HexByte(digits.substr(at, 2)));
    }
    return bytes;
}

Bytes BytesOfText(std::string_view text)
{
    constexpr std::string_view Escaped = "rnt0\\\"";
    constexpr std::string_view Meant("\r\n\t\0\\\"", Escaped.size());
    Bytes bytes;
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
            throw ParseError("a text knows only \\r \\n \\t \\0 \\\\ \\\" and \\xHH");
        }
    }
    return bytes;
}

Lexer::Lexer(std::string_view line)
{
    constexpr std::string_view Blanks = " \t\r\n";
    for (std::size_t at = 0, end = 0;; at = end) {
        at = line.find_first_not_of(Blanks, at);
        if (at == std::string_view::npos || line[at] == '#') {
            return;
        }
        if (line[at] == '"') {
            end = ClosingQuote(line, at) + 1;
            m_words.push_back({std::string(line.substr(at + 1, end - at - 2)), true});
        } else {
            const bool mark = line[at] == ':' || line[at] == ';';
            end = mark ? at + 1 : std::min(line.find_first_of(" \t\r\n:;#\"", at), line.size());
            m_words.push_back({std::string(line.substr(at, end - at)), false});
        }
    }
}

bool Lexer::Is(std::string_view word, std::size_t ahead) const noexcept
{
    const std::size_t at = m_next + ahead;
    return at < m_words.size() && !m_words[at].quoted && m_words[at].text == word;
}

bool Lexer::Has(std::string_view word) const noexcept
{
    return std::any_of(m_words.begin() + static_cast<std::ptrdiff_t>(m_next), m_words.end(),
                       [&](const Word& each) { return !each.quoted && each.text == word; });
}

bool Lexer::Accept(std::string_view word) noexcept
{
    const bool accepted = Is(word);
    m_next += accepted ? 1 : 0;
    return accepted;
}

void Lexer::Expect(std::string_view word)
{
    if (!Accept(word)) {
        throw ParseError("'" + std::string(word) + "' is missing" +
                         (AtEnd() ? "" : " before '" + m_words[m_next].text + "'"));
    }
}

void Lexer::ExpectEnd() const
{
    if (!AtEnd()) {
        throw ParseError("'" + m_words[m_next].text + "' is too much");
    }
}

std::string Lexer::Next(const std::string& what)
{
    if (AtEndOfAction() || Is(":") || m_words[m_next].quoted) {
        throw ParseError(what + " is missing");
    }
    return m_words[m_next++].text;
}

std::int64_t Lexer::Number(const char* what, std::int64_t least, std::int64_t most)
{
    return WholeNumber(Next(what), what, least, most);
}

Time Lexer::Milliseconds()
{
    const std::string text = Next("a time in milliseconds");
    const auto number = ValueOf<double>(text, std::chars_format::fixed);
    // The comparison is also false for what is not a number.
    if (!number || !(*number >= 0 && *number <= 1e9)) {
        throw ParseError("'" + text + "' is not a time in milliseconds (0 to 1000000000)");
    }
    return Time(std::llround(*number * 1000));
}

Address Lexer::PortAddress()
{
    const std::string text = Next("a port address (TYPE,PORT)");
    const std::size_t comma = text.find(',');
    if (comma == std::string::npos) {
        throw ParseError("'" + text + "' is not a port address (TYPE,PORT)");
    }
    const std::string_view all = text;
    return {static_cast<std::uint8_t>(WholeNumber(all.substr(0, comma), "device type", 0, 255)),
            static_cast<std::uint8_t>(WholeNumber(all.substr(comma + 1), "port", 0, 255))};
}

Bytes Lexer::Payload()
{
    if (AtEndOfAction()) {
        throw ParseError("a payload is missing (hex digits or a text in quotes)");
    }
    Bytes payload;
    for (; !AtEndOfAction(); ++m_next) {
        const Word& word = m_words[m_next];
        const Bytes more = word.quoted ? BytesOfText(word.text) : BytesOfHex(word.text);
        payload.insert(payload.end(), more.begin(), more.end());
    }
    return payload;
}

} // namespace instrument
