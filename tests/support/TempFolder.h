// A folder of one test.
#pragma once

#include <filesystem>

namespace support {

/// Made empty below the user's temporary folder, removed with all its contents at the end. What is still held
/// open then stays behind.
class TempFolder
{
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& Path() const noexcept { return m_path; }

private:
    std::filesystem::path m_path;
};

} // namespace support
