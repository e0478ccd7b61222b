// Finds the format that a line was written with, and its values. Portable.
#pragma once

#include "tools/RouterLog/log/TraceFormats.h"

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

namespace routerlog {

/// A line's format and the values of its conversions, in order. Borrows the line's characters.
struct LineMatch
{
    struct Value
    {
        std::int64_t number = 0;
        std::string_view text;
    };
    static constexpr std::size_t MostValues = 4;

    const TraceFormat* format = nullptr; // null: no line of the router
    std::array<Value, MostValues> values{};

    explicit operator bool() const noexcept { return format != nullptr; }
    std::int64_t Number(std::size_t index) const noexcept { return values[index].number; }
    std::string_view Text(std::size_t index) const noexcept { return values[index].text; }
};

/// The table of formats, prepared for looking up lines. Immutable after construction; any thread.
class LineGrammar
{
public:
    LineGrammar();
    /// One for all.
    static const LineGrammar& Instance();

    /// `text` is a line without its stamp and line end.
    LineMatch Match(std::string_view text) const noexcept;

private:
    struct Piece
    {
        enum class Kind : std::uint8_t { Literal, Number, Hex, Text };
        Kind kind;
        std::string_view literal;
    };
    struct Entry
    {
        std::string_view prefix; // what stands before the first conversion
        const TraceFormat* format = nullptr;
        std::vector<Piece> rest;
        int parent = -1; // the entry with the longest prefix that this one's prefix begins with
    };

    static Entry Prepare(const TraceFormat& format);
    static bool MatchFrom(const std::vector<Piece>& pieces, std::size_t at, std::string_view text,
                          LineMatch& match, std::size_t value) noexcept;

    std::vector<Entry> m_entries; // sorted by prefix
};

} // namespace routerlog
