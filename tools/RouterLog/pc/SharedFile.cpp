#include "tools/RouterLog/pc/SharedFile.h"

#include "console/Console.h"

#include <algorithm>
#include <utility>

namespace routerlog {

std::unique_ptr<SharedFile> SharedFile::Open(const std::filesystem::path& path)
{
    // Without the sharing of deletion the router could not rename its log, and would lose what is in it.
    constexpr DWORD everything = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    win32::FileHandle file(::CreateFileW(path.c_str(), GENERIC_READ, everything, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    return file ? std::unique_ptr<SharedFile>(new SharedFile(std::move(file))) : nullptr;
}

std::size_t SharedFile::Read(std::span<char> buffer)
{
    constexpr std::size_t most = 1U << 20;
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min(buffer.size(), most));
    return ::ReadFile(m_file.Get(), buffer.data(), wanted, &count, nullptr) ? count : 0;
}

std::optional<SharedFile::Identity> SharedFile::Id() const
{
    BY_HANDLE_FILE_INFORMATION information{};
    if (!::GetFileInformationByHandle(m_file.Get(), &information)) {
        return std::nullopt;
    }
    return Identity{information.dwVolumeSerialNumber,
                    std::uint64_t{information.nFileIndexHigh} << 32 | information.nFileIndexLow};
}

std::uint64_t SharedFile::Size() const
{
    LARGE_INTEGER size{};
    return ::GetFileSizeEx(m_file.Get(), &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

void SharedFile::Seek(std::uint64_t offset)
{
    LARGE_INTEGER to{};
    to.QuadPart = static_cast<LONGLONG>(offset);
    ::SetFilePointerEx(m_file.Get(), to, nullptr, FILE_BEGIN);
}

std::vector<std::filesystem::path> PathsOf(const std::vector<std::string>& names)
{
    std::vector<std::filesystem::path> paths;
    paths.reserve(names.size());
    for (const std::string& name : names) {
        paths.emplace_back(console::Wide(name));
    }
    return paths;
}

bool WriteWholeFile(const std::filesystem::path& path, std::string_view bytes)
{
    win32::FileHandle file(
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return false;
    }
    DWORD error = ERROR_SUCCESS;
    while (!bytes.empty() && error == ERROR_SUCCESS) {
        DWORD written = 0;
        const auto most = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), 1U << 20));
        if (!::WriteFile(file.Get(), bytes.data(), most, &written, nullptr) || written == 0) {
            error = ::GetLastError() != ERROR_SUCCESS ? ::GetLastError() : ERROR_WRITE_FAULT;
        }
        bytes.remove_prefix(written);
    }
    if (error != ERROR_SUCCESS) {
        file.Reset();
        ::DeleteFileW(path.c_str());
        ::SetLastError(error);
    }
    return error == ERROR_SUCCESS;
}

} // namespace routerlog
