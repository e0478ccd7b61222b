#include "instrument/Lexer.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace instrument {

namespace {

constexpr std::string_view Blanks = " \t\r\n";
constexpr std::string_view EndsWord = " \t\r\n:;#\"";

int HexDigit(char digit)
{
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::uint8_t HexByte(std::string_view digits)
{
    const int high = digits.size() == 2 ? HexDigit(digits[0]) : -1;
    const int low = digits.size() == 2 ? HexDigit(digits[1]) : -1;
    if (high < 0 || low < 0) {
        throw ParseError("'" + std::string(digits) + "' is not a byte of two hex digits");
    }
    return static_cast<std::uint8_t>(high * 16 + low);
}

std::int64_t WholeNumber(std::string_view text, const char* what, std::int64_t least, std::int64_t most)
{
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < least || number > most) {
        const std::string range = most == Lexer::Most
                                    ? "from " + std::to_string(least)
                                    : "from " + std::to_string(least) + " to " + std::to_string(most);
        throw ParseError("'" + std::string(text) + "' is not a " + what + " (a whole number " + range + ")");
    }
    return number;
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
    Bytes bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            bytes.push_back(static_cast<std::uint8_t>(text[at]));
            continue;
        }
        const char escaped = ++at < text.size() ? text[at] : ' ';
        switch (escaped) {
        case 'r': bytes.push_back('\r'); break;
        case 'n': bytes.push_back('\n'); break;
        case 't': bytes.push_back('\t'); break;
        case '0': bytes.push_back(0); break;
        case '\\':
        case '"': bytes.push_back(static_cast<std::uint8_t>(escaped)); break;
        case 'x':
            bytes.push_back(HexByte(text.substr(at + 1, 2)));
            at += 2;
            break;
        default: throw ParseError("a text knows only \\r \\n \\t \\0 \\\\ \\\" and \\xHH");
        }
    }
    return bytes;
}

Lexer::Lexer(std::string_view line)
{
    std::size_t at = line.find_first_not_of(Blanks);
    while (at != std::string_view::npos && line[at] != '#') {
        if (line[at] == '"') {
            at = ReadQuoted(line, at);
        } else if (line[at] == ':' || line[at] == ';') {
            m_words.push_back({std::string(1, line[at]), false});
            ++at;
        } else {
            const std::size_t end = std::min(line.find_first_of(EndsWord, at), line.size());
            m_words.push_back({std::string(line.substr(at, end - at)), false});
            at = end;
        }
        at = line.find_first_not_of(Blanks, at);
    }
}

std::size_t Lexer::ReadQuoted(std::string_view line, std::size_t at)
{
    std::size_t end = at + 1;
    while (end < line.size() && line[end] != '"') {
        end += line[end] == '\\' ? 2 : 1;
    }
    if (end >= line.size()) {
        throw ParseError("a text in quotes does not end");
    }
    m_words.push_back({std::string(line.substr(at + 1, end - at - 1)), true});
    return end + 1;
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
    if (!Is(word)) {
        return false;
    }
    ++m_next;
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

std::int64_t Lexer::SignedNumber(const char* what, std::int64_t least, std::int64_t most)
{
    return WholeNumber(Next(what), what, least, most);
}

Time Lexer::Milliseconds()
{
    const std::string text = Next("a time in milliseconds");
    double number = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    // The comparison is also false for what is not a number.
    if (error != std::errc() || end != text.data() + text.size() || !(number >= 0 && number <= 1e9)) {
        throw ParseError("'" + text + "' is not a time in milliseconds (0 to 1000000000)");
    }
    return Time(std::llround(number * 1000));
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
