#include "tests/support/TempFolder.h"

#include "tests/support/UniqueName.h"

#include <system_error>

namespace support {

TempFolder::TempFolder() : m_path(std::filesystem::temp_directory_path() / UniqueName(L"MorvaneTest"))
{
    // Process ids come again; what a killed test left behind must not look like this one's.
    std::filesystem::remove_all(m_path);
    std::filesystem::create_directories(m_path);
}

TempFolder::~TempFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

} // namespace support
