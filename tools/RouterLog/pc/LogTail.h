// A log that is read while the router writes and rotates it.
#pragma once

#include "tools/RouterLog/log/LineReader.h"
#include "tools/RouterLog/pc/SharedFile.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace routerlog {

/// Gives each line of a growing log once. The backup is never opened: the file that becomes it is held open from
/// before, read to its end, and closed at once, because Windows replaces no backup that is open. That holds as
/// long as the router does not rotate twice between two looks. One thread.
class LogTail
{
public:
    using TakeLine = std::function<void(const RawLine&)>;
    using BeginFile = std::function<void()>;

    /// Nothing is opened yet; the file need not be there.
    LogTail(std::filesystem::path path, BeginFile beginFile, TakeLine takeLine);

    /// Takes everything that was written since the last look.
    void Look();

    std::uint64_t Rotations() const noexcept { return m_rotations; }

private:
    /// Adopts the file that has the log's name now.
    void Adopt(std::unique_ptr<SharedFile> file);
    void ReadOn();
    void TakeBytes(std::string_view bytes);

    std::filesystem::path m_path;
    BeginFile m_beginFile;
    TakeLine m_takeLine;
    std::unique_ptr<SharedFile> m_file;
    std::vector<char> m_buffer;
    std::string m_partial; // the beginning of a line whose end is not written yet
    std::uint64_t m_offset = 0;
    std::uint64_t m_line = 0;
    std::uint64_t m_rotations = 0;
};

} // namespace routerlog
