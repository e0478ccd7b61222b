// The log file on disk: banners, size limit with one backup, flushing.
#pragma once

#include "win32/Handle.h"

#include <cstdint>
#include <string>
#include <string_view>

/// Used by the tracer's thread alone. No failure is reported: what cannot be written is lost.
class LogFile
{
public:
    /// The calls whose failures, time and order a test wants to command.
    struct Disk
    {
        decltype(&::CreateFileW) Create = &::CreateFileW;
        decltype(&::WriteFile) Write = &::WriteFile;
        decltype(&::FlushFileBuffers) Flush = &::FlushFileBuffers;
        decltype(&::GetTickCount) Ticks = &::GetTickCount; // ms
    };

    LogFile() noexcept = default;
    explicit LogFile(const Disk& disk) noexcept : m_disk(disk) {}

    bool IsOpen() const noexcept { return static_cast<bool>(m_file); }

    /// Whether WriteLine is to be called: the file is open, or a rotation lost it and WriteLine opens it again.
    bool TakesLines() const noexcept { return IsOpen() || m_isInterrupted; }

    /// Opens or creates the file, keeps its contents if `append`, writes the begin banner. Only while none is
    /// open.
    void Open(const std::wstring& path, bool append);

    /// Appends one line. A file of more than `sizeLimit` bytes is first moved aside, in place of the previous
    /// backup. When no new one can be opened, lines are lost until a later call can; at most one a second tries.
    void WriteLine(std::string_view text, std::uint32_t sizeLimit);

    /// Writes `text` as it is: a banner.
    void Write(std::string_view text) noexcept;

    /// Flushes when a second has passed since the last time or 50 lines wait.
    void FlushWhenDue() noexcept;

    /// Writes the end banner and closes.
    void Close();

private:
    win32::FileHandle OpenForWriting(const std::wstring& path, DWORD disposition) const noexcept;
    void Rotate();
    void Resume();

    Disk m_disk;
    win32::FileHandle m_file;
    std::wstring m_path; // of the open or interrupted file
    bool m_isInterrupted = false;
    DWORD m_lastOpening = 0; // ticks; by Rotate or Resume
    std::int32_t m_unflushedLines = 0;
    DWORD m_lastFlush = 0; // ticks
};
