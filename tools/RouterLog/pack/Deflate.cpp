#include "tools/RouterLog/pack/Deflate.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace routerlog {

namespace {

constexpr std::size_t ShortestMatch = 3;
constexpr std::size_t LongestMatch = 258;
constexpr std::size_t Window = 32'768;
constexpr int MostTries = 32; // candidates looked at for a match

/// Bits, the lowest of each byte first.
class BitWriter
{
public:
    void Bits(std::uint32_t value, int count)
    {
        m_held |= value << m_count;
        m_count += count;
        while (m_count >= 8) {
            m_out += static_cast<char>(m_held & 0xFF);
            m_held >>= 8;
            m_count -= 8;
        }
    }
    std::string Take()
    {
        Bits(0, (8 - m_count) % 8);
        return std::move(m_out);
    }

private:
    std::string m_out;
    std::uint32_t m_held = 0;
    int m_count = 0;
};

struct Code
{
    std::uint16_t bits; // the highest first, as Huffman codes are written
    std::uint8_t count;
};

constexpr Code Reversed(std::uint32_t code, int count)
{
    std::uint32_t reversed = 0;
    for (int i = 0; i < count; ++i) {
        reversed = reversed << 1 | (code >> i & 1);
    }
    return {static_cast<std::uint16_t>(reversed), static_cast<std::uint8_t>(count)};
}

/// The fixed codes of literals, of the end of the block (256), and of lengths.
constexpr auto FixedCodes = [] {
    std::array<Code, 288> codes{};
    for (std::uint32_t symbol = 0; symbol < codes.size(); ++symbol) {
        codes[symbol] = symbol < 144 ? Reversed(0x30 + symbol, 8)
                      : symbol < 256 ? Reversed(0x190 + symbol - 144, 9)
                      : symbol < 280 ? Reversed(symbol - 256, 7)
                                     : Reversed(0xC0 + symbol - 280, 8);
    }
    return codes;
}();

void Put(BitWriter& out, Code code)
{
    out.Bits(code.bits, code.count);
}

struct Range
{
    std::uint16_t base;
    std::uint8_t extraBits;
};

constexpr std::array<Range, 29> Lengths{
    {{3, 0},  {4, 0},  {5, 0},  {6, 0},   {7, 0},   {8, 0},   {9, 0},   {10, 0},  {11, 1}, {13, 1},
     {15, 1}, {17, 1}, {19, 2}, {23, 2},  {27, 2},  {31, 2},  {35, 3},  {43, 3},  {51, 3}, {59, 3},
     {67, 4}, {83, 4}, {99, 4}, {115, 4}, {131, 5}, {163, 5}, {195, 5}, {227, 5}, {258, 0}}};
constexpr std::array<Range, 30> Distances{
    {{1, 0},     {2, 0},     {3, 0},     {4, 0},      {5, 1},      {7, 1},     {9, 2},     {13, 2},
     {17, 3},    {25, 3},    {33, 4},    {49, 4},     {65, 5},     {97, 5},    {129, 6},   {193, 6},
     {257, 7},   {385, 7},   {513, 8},   {769, 8},    {1025, 9},   {1537, 9},  {2049, 10}, {3073, 10},
     {4097, 11}, {6145, 11}, {8193, 12}, {12289, 12}, {16385, 13}, {24577, 13}}};

template <std::size_t Count>
std::size_t IndexIn(const std::array<Range, Count>& ranges, std::size_t value)
{
    std::size_t index = Count - 1;
    while (ranges[index].base > value) {
        --index;
    }
    return index;
}

void PutMatch(BitWriter& out, std::size_t length, std::size_t distance)
{
    const std::size_t lengthIndex = IndexIn(Lengths, length);
    Put(out, FixedCodes[257 + lengthIndex]);
    out.Bits(static_cast<std::uint32_t>(length - Lengths[lengthIndex].base), Lengths[lengthIndex].extraBits);
    const std::size_t distanceIndex = IndexIn(Distances, distance);
    Put(out, Reversed(static_cast<std::uint32_t>(distanceIndex), 5));
    out.Bits(static_cast<std::uint32_t>(distance - Distances[distanceIndex].base),
             Distances[distanceIndex].extraBits);
}

/// Finds earlier occurrences of what comes next.
class Matcher
{
public:
    explicit Matcher(std::string_view bytes) : m_bytes(bytes), m_last(HashSize, None), m_before(Window, None) {}

    struct Match
    {
        std::size_t length = 0, distance = 0;
    };

    Match Find(std::size_t at) const
    {
        Match best;
        const std::size_t most = std::min(LongestMatch, m_bytes.size() - at);
        if (most < ShortestMatch) {
            return best;
        }
        std::size_t from = m_last[HashAt(at)];
        for (int tries = 0; from != None && at - from <= Window && tries < MostTries; ++tries) {
            std::size_t length = 0;
            while (length < most && m_bytes[from + length] == m_bytes[at + length]) {
                ++length;
            }
            if (length > best.length) {
                best = {length, at - from};
            }
            const std::size_t earlier = m_before[from % Window];
            if (earlier == None || earlier >= from) {
                break; // overwritten by a later place
            }
            from = earlier;
        }
        return best.length >= ShortestMatch ? best : Match{};
    }

    void Remember(std::size_t at)
    {
        if (at + ShortestMatch <= m_bytes.size()) {
            std::size_t& last = m_last[HashAt(at)];
            m_before[at % Window] = last;
            last = at;
        }
    }

private:
    static constexpr std::size_t None = ~std::size_t{0};
    static constexpr std::size_t HashSize = 1U << 15;

    std::size_t HashAt(std::size_t at) const
    {
        const auto byte = [&](std::size_t i) {
            return static_cast<std::uint32_t>(static_cast<unsigned char>(m_bytes[at + i]));
        };
        return (byte(0) << 16 | byte(1) << 8 | byte(2)) * 2'654'435'761U >> 17;
    }

    std::string_view m_bytes;
    std::vector<std::size_t> m_last;   // by hash
    std::vector<std::size_t> m_before; // the place before with the same hash, by place
};

} // namespace

std::string Deflate(std::string_view bytes)
{
    BitWriter out;
    out.Bits(1, 1); // the last block
    out.Bits(1, 2); // of fixed codes
    Matcher matcher(bytes);
    for (std::size_t at = 0; at < bytes.size();) {
        const Matcher::Match match = matcher.Find(at);
        const std::size_t length = std::max<std::size_t>(match.length, 1);
        if (match.length > 0) {
            PutMatch(out, match.length, match.distance);
        } else {
            Put(out, FixedCodes[static_cast<unsigned char>(bytes[at])]);
        }
        for (std::size_t i = 0; i < length; ++i) {
            matcher.Remember(at++);
        }
    }
    Put(out, FixedCodes[256]);
    return out.Take();
}

} // namespace routerlog
