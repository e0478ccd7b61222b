#include "firmware/FirmwareFile.h"

#include "win32/Handle.h"
#include "win32/ModulePath.h"

#include <limits>
#include <new>
#include <utility>

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
    LARGE_INTEGER size{};
    if (!file || ::GetFileSizeEx(file.Get(), &size) == FALSE ||
        size.QuadPart > std::numeric_limits<std::uint32_t>::max())
    {
        return {};
    }
    const auto length = static_cast<DWORD>(size.QuadPart);
    std::shared_ptr<FirmwareImage> image;
    try {
        image = std::make_shared<FirmwareImage>();
        image->bytes.reset(new std::uint8_t[length]); // not zeroed: an image is some megabytes
    } catch (const std::bad_alloc&) {
        return {};
    }
    DWORD count = 0;
    const bool worked = readFile(file.Get(), image->bytes.get(), length, &count, nullptr) != FALSE;
    image->size = count;
    // By design: a read that worked gives an image. One that failed with all bytes gives none, and nothing is
    // downloaded. One that failed with fewer gives the bytes that it has read as the image.
    if (!worked && count == length) {
        return {FirmwareReading::Outcome::Discarded, nullptr, count};
    }
    return {FirmwareReading::Outcome::Loaded, std::move(image), count};
}
