// One line of the script language as words. Portable.
#pragma once

#include "console/CommandLine.h"
#include "instrument/Script.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <ranges>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace instrument {

/// Why a line is wrong. Thrown and caught while one line is read.
using ParseError = std::invalid_argument;

/// Reads a line from left to right. What is missing or not what is asked for throws ParseError.
class Lexer
{
public:
    static constexpr std::int64_t Most = std::numeric_limits<std::int64_t>::max();

    /// Text in double quotes is one word, ":" and ";" are words of their own, "#" begins a comment.
    explicit Lexer(std::string_view line)
    {
        for (std::size_t at = line.find_first_not_of(Spaces); at < line.size() && line[at] != '#';) {
            const bool quoted = line[at] == '"';
            const bool mark = line[at] == ':' || line[at] == ';';
            const std::size_t end = quoted ? ClosingQuote(line, at)
                                  : mark   ? at + 1
                                           : std::min(line.find_first_of(" \t\r\n:;#\"", at), line.size());
            m_words.emplace_back(line.substr(at, end - at));
            at = line.find_first_not_of(Spaces, end + (quoted ? 1 : 0));
        }
    }

    bool AtEnd() const noexcept { return m_next == m_words.size(); }
    /// At the end of the line or before a ";", which ends one action.
    bool AtEndOfAction() const noexcept { return AtEnd() || Is(";"); }
    bool Is(std::string_view word) const noexcept { return !AtEnd() && m_words[m_next] == word; }
    /// Anywhere from here on.
    bool Has(std::string_view word) const noexcept
    {
        return std::find(m_words.begin() + static_cast<std::ptrdiff_t>(m_next), m_words.end(), word) !=
               m_words.end();
    }

    /// Takes the next words when they are these, with a space between them.
    bool Accept(std::string_view words) noexcept
    {
        std::size_t next = m_next;
        for (const auto word : std::views::split(words, ' ')) {
            if (next == m_words.size() || m_words[next++] != std::string_view(word.begin(), word.end())) {
                return false;
            }
        }
        m_next = next;
        return true;
    }
    void Expect(std::string_view word)
    {
        if (!Accept(word)) {
            throw ParseError("'" + std::string(word) + "' is missing" +
                             (AtEnd() ? "" : " before '" + NextInMessage() + "'"));
        }
    }
    void ExpectEnd() const
    {
        if (!AtEnd()) {
            throw ParseError("'" + NextInMessage() + "' is too much");
        }
    }

    /// Takes a word of the current action without quotes; `what` names it in the message.
    std::string Next(const std::string& what)
    {
        if (AtEndOfAction() || Is(":") || m_words[m_next][0] == '"') {
            throw ParseError(what + " is missing");
        }
        return NextWord();
    }
    /// Takes a word of any kind; a text in quotes with the first of them. Not at the end.
    const std::string& NextWord() noexcept { return m_words[m_next++]; }

    /// A whole number from `least` to `most`, both of which a Value holds.
    template <class Value = std::uint64_t>
    Value Number(const char* what, std::int64_t least, std::int64_t most = Most)
    {
        return static_cast<Value>(WholeNumber(Next(what), what, least, most));
    }
    static std::int64_t WholeNumber(std::string_view text, const char* what, std::int64_t least, std::int64_t most)
    {
        const auto number = commandline::NumberOf(text, least, most);
        return number ? *number
                      : throw ParseError("'" + std::string(text) + "' is not a " + what +
                                         " (a whole number from " + std::to_string(least) +
                                         (most == Most ? "" : " to " + std::to_string(most)) + ")");
    }
    /// Milliseconds, with or without a decimal part; at most about eleven days.
    Time Milliseconds()
    {
        const std::string text = Next("a time in milliseconds");
        const auto microseconds = commandline::ThousandthsOf(text, 1e9);
        return microseconds ? Time(*microseconds)
                            : throw ParseError("'" + text + "' is not a time in milliseconds (0 to 1000000000)");
    }

private:
    static constexpr const char* Spaces = " \t\r\n";

    std::string NextInMessage() const { return m_words[m_next].substr(m_words[m_next][0] == '"' ? 1 : 0); }
    /// Where the text in quotes that begins at `at` has its closing quote.
    static std::size_t ClosingQuote(std::string_view line, std::size_t at)
    {
        std::size_t end = at + 1;
        while (end < line.size() && line[end] != '"') {
            end += line[end] == '\\' ? 2 : 1;
        }
        return end < line.size() ? end : throw ParseError("a text in quotes does not end");
    }

    std::vector<std::string> m_words;
    std::size_t m_next = 0;
};

} // namespace instrument
