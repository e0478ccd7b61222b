#include "firmware/FirmwareFile.h"

#include "win32/Handle.h"
#include "win32/ModulePath.h"

#include <limits>
#include <new>
#include <optional>

namespace {

std::optional<std::uint32_t> SizeOf(const win32::FileHandle& file) noexcept
{
    LARGE_INTEGER size{};
    if (::GetFileSizeEx(file.Get(), &size) == FALSE || size.QuadPart > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(size.QuadPart);
}

FirmwareReading ReadOpenFile(const win32::FileHandle& file, std::uint32_t size, decltype(&::ReadFile) readFile)
{
    const auto image = std::make_shared<FirmwareImage>();
    image->bytes.reset(new std::uint8_t[size]); // not zeroed: an image is some megabytes
    DWORD count = 0;
    const bool worked = readFile(file.Get(), image->bytes.get(), size, &count, nullptr) != FALSE;
    image->size = count;
    // By design: a read that worked gives an image. One that failed with all bytes gives none, and nothing is
    // downloaded. One that failed with fewer gives the bytes that it has read as the image.
    if (!worked && count == size) {
        return {FirmwareReading::Outcome::Discarded, nullptr, count};
    }
    return {FirmwareReading::Outcome::Loaded, image, count};
}

} // namespace

FirmwareSurroundings FirmwareSurroundings::OfThisProcess()
{
    return {win32::ModulePath().value_or(std::wstring()), &::GetTickCount, &::ReadFile};
}

std::wstring FirmwareFileName(const std::wstring& programPath, std::uint16_t productId)
{
    const std::wstring folder = win32::FolderOf(programPath);
    return folder.empty() ? folder : folder + L"Firmware\\Firmware_" + std::to_wstring(productId) + L".Out";
}

FirmwareReading ReadFirmware(const std::wstring& name, decltype(&::ReadFile) readFile) noexcept
{
    if (name.empty() || ::GetFileAttributesW(name.c_str()) == INVALID_FILE_ATTRIBUTES) {
        return {};
    }
    const win32::FileHandle file(::CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                               FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return {};
    }
    const std::optional<std::uint32_t> size = SizeOf(file);
    if (!size) {
        return {};
    }
    try {
        return ReadOpenFile(file, *size, readFile);
    } catch (const std::bad_alloc&) {
        return {};
    }
}
