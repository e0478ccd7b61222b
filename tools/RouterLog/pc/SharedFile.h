// Files that the router may be writing, renaming or replacing at the same time.
#pragma once

#include "tools/RouterLog/log/LineReader.h"
#include "win32/Handle.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace routerlog {

/// A file that is read while everybody may do everything with it. One thread.
class SharedFile : public IByteSource
{
public:
    /// Null when the file cannot be opened; GetLastError() tells why.
    static std::unique_ptr<SharedFile> Open(const std::filesystem::path& path);

    std::size_t Read(std::span<char> buffer) override;

    /// Which file this is, whatever its name is by now; none when Windows does not tell.
    struct Identity
    {
        DWORD volume;
        std::uint64_t index;
        bool operator==(const Identity&) const = default;
    };
    std::optional<Identity> Id() const;
    std::uint64_t Size() const;
    void Seek(std::uint64_t offset);

private:
    explicit SharedFile(win32::FileHandle file) : m_file(std::move(file)) {}
    win32::FileHandle m_file;
};

/// Names in UTF-8 as paths.
std::vector<std::filesystem::path> PathsOf(const std::vector<std::string>& names);

/// Writes a whole file; false with GetLastError() when that fails. The file holds all of it, or is not there.
bool WriteWholeFile(const std::filesystem::path& path, std::string_view bytes);

} // namespace routerlog
