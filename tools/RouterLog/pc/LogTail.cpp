#include "tools/RouterLog/pc/LogTail.h"

#include <utility>

namespace routerlog {

LogTail::LogTail(std::filesystem::path path, BeginFile beginFile, TakeLine takeLine)
    : m_path(std::move(path)),
      m_beginFile(std::move(beginFile)),
      m_takeLine(std::move(takeLine)),
      m_buffer(1U << 16)
{
}

void LogTail::Look()
{
    if (m_file) {
        ReadOn();
        if (m_file->Size() < m_offset) {
            Adopt(std::move(m_file)); // emptied in place: the router was started without appending
            ReadOn();
        }
    }
    std::unique_ptr<SharedFile> named = SharedFile::Open(m_path);
    if (!named) {
        return; // between the renaming and the new file, or there is none yet
    }
    if (m_file) {
        if (named->Id() == m_file->Id()) {
            return;
        }
        ReadOn(); // what came between the last read and the renaming
        ++m_rotations;
    }
    Adopt(std::move(named));
    ReadOn();
}

void LogTail::Adopt(std::unique_ptr<SharedFile> file)
{
    m_file = std::move(file);
    m_file->Seek(0);
    m_offset = 0;
    m_line = 0;
    m_partial.clear();
    m_beginFile();
}

void LogTail::ReadOn()
{
    while (const std::size_t count = m_file->Read(m_buffer)) {
        m_offset += count;
        TakeBytes({m_buffer.data(), count});
    }
}

void LogTail::TakeBytes(std::string_view bytes)
{
    for (std::size_t end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
        m_partial += bytes.substr(0, end);
        bytes.remove_prefix(end + 1);
        if (m_partial.ends_with('\r')) {
            m_partial.pop_back();
        }
        m_takeLine({std::string_view(m_partial).substr(0, LineReader::LongestLine), ++m_line, true});
        m_partial.clear();
    }
    if (m_partial.size() < LineReader::LongestLine) {
        m_partial += bytes;
    }
}

} // namespace routerlog
