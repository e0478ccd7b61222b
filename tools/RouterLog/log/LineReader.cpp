#include "tools/RouterLog/log/LineReader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace routerlog {

LineReader::LineReader(IByteSource& source) : m_source(source), m_buffer(4 * LongestLine) {}

std::optional<RawLine> LineReader::Next()
{
    std::size_t searched = 0;
    for (;;) {
        const char* const from = m_buffer.data() + m_begin;
        const std::size_t held = m_end - m_begin;
        const auto* const newline = static_cast<const char*>(
            held > searched ? std::memchr(from + searched, '\n', held - searched) : nullptr);
        if (newline == nullptr && held < LongestLine && Fill()) {
            searched = held;
            continue;
        }
        if (newline == nullptr && held == 0) {
            return std::nullopt;
        }
        std::string_view text(from, newline != nullptr ? static_cast<std::size_t>(newline - from) : held);
        const bool cut = newline == nullptr && !m_atEnd;
        m_begin += text.size() + (newline != nullptr ? 1 : 0);
        const bool isRest = std::exchange(m_skipping, cut);
        searched = 0;
        if (isRest) {
            continue;
        }
        if (text.ends_with('\r')) {
            text.remove_suffix(1);
        }
        return RawLine{text.substr(0, LongestLine), ++m_number, newline != nullptr || cut};
    }
}

// Reads more bytes after those held, which move to the front of the buffer. False at the end of the file.
bool LineReader::Fill()
{
    if (m_atEnd) {
        return false;
    }
    std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
    const std::size_t count = m_source.Read(std::span(m_buffer).subspan(m_end));
    m_end += count;
    m_atEnd = count == 0;
    return !m_atEnd;
}

} // namespace routerlog
