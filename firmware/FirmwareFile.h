// The firmware file beside the program.
#pragma once

#include "firmware/FirmwareImage.h"
#include "win32/Windows.h"

#include <cstdint>
#include <string>

/// What the downloader takes from the process it runs in; tests put their own in its place.
struct FirmwareSurroundings
{
    std::wstring programPath;       // full path of the program file
    DWORD(WINAPI* tickCount)();     // milliseconds, wraps
    decltype(&::ReadFile) readFile; // the one call that reads the image

    static FirmwareSurroundings OfThisProcess();
};

/// Name of the product's firmware file: "Firmware\Firmware_", the product ID in decimal and ".Out" after the
/// program's folder. Empty when the program's path has no backslash.
std::wstring FirmwareFileName(const std::wstring& programPath, std::uint16_t productId);

/// What came of reading a firmware file.
struct FirmwareReading
{
    enum class Outcome {
        NoFile,   // there is none, it cannot be opened, or memory does not hold it
        Loaded,   // read to the end of what the one read gives, or a part of it although the read failed
        Discarded // the read failed with every byte delivered: nothing is to be downloaded
    };
    Outcome outcome = Outcome::NoFile;
    FirmwareImagePtr image;  // with Loaded only
    std::uint32_t count = 0; // bytes read
};

/// Reads the file with one call of `readFile`. Allocates the image only; a failed allocation counts as NoFile.
FirmwareReading ReadFirmware(const std::wstring& name, decltype(&::ReadFile) readFile) noexcept;
