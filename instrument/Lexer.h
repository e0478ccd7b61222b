// One line of the script language as words. Portable.
#pragma once

#include "instrument/Script.h"

#include <cstddef>
#include <cstdint>
#include <limits>
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
    explicit Lexer(std::string_view line);

    bool AtEnd() const noexcept { return m_next == m_words.size(); }
    /// At the end of the line or before a ";", which ends one action.
    bool AtEndOfAction() const noexcept { return AtEnd() || Is(";"); }
    bool Is(std::string_view word) const noexcept { return !AtEnd() && m_words[m_next].Is(word); }
    bool Has(std::string_view word) const noexcept; // anywhere from here on
    /// Takes the next words when they are these, with a space between them.
    bool Accept(std::string_view words) noexcept;
    void Expect(std::string_view word);
    void ExpectEnd() const;

    /// `what` names the thing in the message.
    std::string Next(const std::string& what);
    /// A whole number from `least` to `most`, both of which a Value holds.
    template <class Value = std::uint64_t>
    Value Number(const char* what, std::int64_t least, std::int64_t most = Most)
    {
        return static_cast<Value>(WholeNumber(Next(what), what, least, most));
    }
    /// Milliseconds, with or without a decimal part; at most about eleven days.
    Time Milliseconds();
    /// "TYPE,PORT", 0 to 255 each.
    Address PortAddress();
    /// All words up to the end of the action: hex digits, two a byte, or text in quotes; at least one.
    Bytes Payload();

private:
    struct Word
    {
        std::string text;
        bool quoted;
        bool Is(std::string_view word) const noexcept { return !quoted && text == word; }
    };

    static std::int64_t WholeNumber(std::string_view text, const char* what, std::int64_t least,
                                    std::int64_t most);

    std::vector<Word> m_words;
    std::size_t m_next = 0;
};

} // namespace instrument
