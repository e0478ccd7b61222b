// ZIP files. Portable.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace routerlog {

/// Builds a ZIP file in memory, at most 4 GB. One thread.
class ZipWriter
{
public:
    /// `name` in UTF-8, with "/" between folders; every name once.
    void Add(const std::string& name, std::string_view bytes);

    /// What the file would hold now if it ended here.
    std::size_t Size() const noexcept { return m_out.size() + m_directory.size() + EndLength; }

    /// The whole file; nothing may be added afterwards.
    std::string Finish();

private:
    static constexpr std::size_t EndLength = 22;

    std::string m_out;
    std::string m_directory;
    std::uint16_t m_entries = 0;
};

/// Of ZIP files.
std::uint32_t Crc32(std::string_view bytes) noexcept;

} // namespace routerlog
