// Lines of a file of any size, with a buffer of fixed size. Portable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace routerlog {

/// Bytes from the beginning of a file to its end.
class IByteSource
{
public:
    virtual ~IByteSource() = default;
    /// Fills the front of `buffer` and returns how much; 0 at the end, also when reading failed.
    virtual std::size_t Read(std::span<char> buffer) = 0;
};

/// One line: without its end, which is LF or CR LF. Valid until the next one is read.
struct RawLine
{
    std::string_view text;
    std::uint64_t number = 0; // in its file, from 1
    bool ended = true;        // false for what follows the last line end
};

/// One thread.
class LineReader
{
public:
    /// A longer line is cut to this; the router writes none beyond 2,080 characters.
    static constexpr std::size_t LongestLine = 65'536;

    explicit LineReader(IByteSource& source);

    /// None at the end of the file.
    std::optional<RawLine> Next();

private:
    bool Fill();

    IByteSource& m_source;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0; // what is read and not yet taken
    std::size_t m_end = 0;
    std::uint64_t m_number = 0;
    bool m_atEnd = false;
    bool m_skipping = false; // in the rest of a line that was cut
};

} // namespace routerlog
