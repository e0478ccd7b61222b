#include "instrument/Lexer.h"

#include "console/CommandLine.h"
#include "console/TypedBytes.h"

#include <algorithm>
#include <ranges>

namespace instrument {

namespace {

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

Lexer::Lexer(std::string_view line)
{
    for (std::size_t at = 0, end = 0;; at = end) {
        at = line.find_first_not_of(" \t\r\n", at);
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

bool Lexer::Has(std::string_view word) const noexcept
{
    return std::any_of(m_words.begin() + static_cast<std::ptrdiff_t>(m_next), m_words.end(),
                       [&](const Word& each) { return each.Is(word); });
}

bool Lexer::Accept(std::string_view words) noexcept
{
    std::size_t next = m_next;
    for (const auto word : std::views::split(words, ' ')) {
        if (next == m_words.size() || !m_words[next++].Is({word.begin(), word.end()})) {
            return false;
        }
    }
    m_next = next;
    return true;
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

std::int64_t Lexer::WholeNumber(std::string_view text, const char* what, std::int64_t least, std::int64_t most)
{
    const auto number = commandline::NumberOf(text, least, most);
    if (!number) {
        throw ParseError("'" + std::string(text) + "' is not a " + what + " (a whole number from " +
                         std::to_string(least) + (most == Most ? "" : " to " + std::to_string(most)) + ")");
    }
    return *number;
}

Time Lexer::Milliseconds()
{
    const std::string text = Next("a time in milliseconds");
    const auto microseconds = commandline::ThousandthsOf(text, 1e9);
    if (!microseconds) {
        throw ParseError("'" + text + "' is not a time in milliseconds (0 to 1000000000)");
    }
    return Time(*microseconds);
}

Address Lexer::PortAddress()
{
    const std::string text = Next("a port address (TYPE,PORT)");
    const std::size_t comma = text.find(',');
    if (comma == std::string::npos) {
        throw ParseError("'" + text + "' is not a port address (TYPE,PORT)");
    }
    const auto type = WholeNumber(text.substr(0, comma), "device type", 0, 255);
    const auto port = WholeNumber(text.substr(comma + 1), "port", 0, 255);
    return {static_cast<std::uint8_t>(type), static_cast<std::uint8_t>(port)};
}

Bytes Lexer::Payload()
{
    if (AtEndOfAction()) {
        throw ParseError("a payload is missing (hex digits or a text in quotes)");
    }
    Bytes payload;
    while (!AtEndOfAction()) {
        const Word& word = m_words[m_next++];
        const Bytes more = word.quoted ? console::BytesOfText(word.text) : console::BytesOfHex(word.text);
        payload.insert(payload.end(), more.begin(), more.end());
    }
    return payload;
}

} // namespace instrument
