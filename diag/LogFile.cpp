#include "diag/LogFile.h"

#include "diag/TimeStamp.h"

namespace {

constexpr std::int32_t FlushLines = 50;
constexpr DWORD FlushInterval = 1000;  // ms
constexpr DWORD ReopenInterval = 1000; // ms
constexpr char ContinuedBanner[] = "********** Continued **********\r\n";

} // namespace

/// Others may read the file while it is written.
win32::FileHandle LogFile::OpenForWriting(const std::wstring& path, DWORD disposition) const noexcept
{
    return win32::FileHandle(m_disk.Create(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                           disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

void LogFile::Open(const std::wstring& path, bool append)
{
    m_isInterrupted = false;
    m_file = OpenForWriting(path, append ? OPEN_ALWAYS : CREATE_ALWAYS);
    if (!m_file) {
        return;
    }
    m_path = path;
    ::SetFilePointer(m_file.Get(), 0, nullptr, FILE_END);
    Write(TimeStamp() + "******** Begin Logging ********\r\n");
    m_disk.Flush(m_file.Get());
}

void LogFile::WriteLine(std::string_view text, std::uint32_t sizeLimit)
{
    if (m_isInterrupted) {
        Resume();
    } else if (::GetFileSize(m_file.Get(), nullptr) > sizeLimit) {
        Rotate();
    }
    Write(std::string(text) + "\r\n");
    ++m_unflushedLines;
}

void LogFile::Rotate()
{
    // Nine asterisks and five: programs that read the log know the line in this form.
    Write("********* To Be Continued *****\r\n");
    m_file.Reset();
    ::MoveFileExW(m_path.c_str(), (m_path + L".BAK").c_str(), MOVEFILE_REPLACE_EXISTING);
    // Also when the move failed (another process holds one of the two open): the size stays bounded, at the price
    // of what was in the file.
    m_file = OpenForWriting(m_path, CREATE_ALWAYS);
    m_isInterrupted = !IsOpen();
    m_lastOpening = m_disk.Ticks();
    Write(ContinuedBanner);
}

/// After a rotation that could not open the new file, as when a virus scanner held it for a moment. Another file
/// may have come into its place, so nothing is emptied.
void LogFile::Resume()
{
    const DWORD now = m_disk.Ticks();
    if (now - m_lastOpening < ReopenInterval) {
        return;
    }
    m_lastOpening = now;
    m_file = OpenForWriting(m_path, OPEN_ALWAYS);
    m_isInterrupted = !IsOpen();
    ::SetFilePointer(m_file.Get(), 0, nullptr, FILE_END);
    Write(ContinuedBanner);
}

void LogFile::Write(std::string_view text) noexcept
{
    if (m_file) {
        DWORD written = 0;
        m_disk.Write(m_file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    }
}

void LogFile::FlushWhenDue() noexcept
{
    const DWORD now = m_disk.Ticks();
    if (m_unflushedLines < FlushLines && now - m_lastFlush < FlushInterval) {
        return;
    }
    m_disk.Flush(m_file.Get());
    m_unflushedLines = 0;
    m_lastFlush = now;
}

void LogFile::Close()
{
    Write(TimeStamp() + "********* End Logging *********\r\n");
    m_disk.Flush(m_file.Get());
    m_file.Reset();
}
