// The router's folder: its log, its firmware, the free space on its disk.
#include "console/Console.h"
#include "tools/RouterLog/log/LogFiles.h"
#include "tools/RouterLog/pc/GatherFacts.h"
#include "win32/Handle.h"
#include "win32/ModulePath.h"

#include <filesystem>

namespace routerlog {

namespace {

namespace fs = std::filesystem;

/// Whether a file can be made there. Without a folder the router makes one, so its parent counts.
bool MayWrite(const fs::path& folder)
{
    std::error_code ignored;
    const fs::path place = fs::is_directory(folder, ignored) ? folder : folder.parent_path();
    const std::wstring probe =
        (place / (L"RouterLog." + std::to_wstring(::GetCurrentProcessId()) + L".tmp")).wstring();
    const win32::FileHandle file(::CreateFileW(probe.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                                               FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    return static_cast<bool>(file);
}

void LookAtLog(const fs::path& log, PcFacts& facts)
{
    const DWORD attributes = ::GetFileAttributesW(log.c_str());
    facts.logReadOnly = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    const win32::FileHandle file(::CreateFileW(log.c_str(), GENERIC_READ | GENERIC_WRITE,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file) {
        return;
    }
    const DWORD error = ::GetLastError();
    facts.logReadOnly = facts.logReadOnly || error == ERROR_ACCESS_DENIED;
    // The router itself keeps others from writing its log.
    facts.logHeld = error == ERROR_SHARING_VIOLATION && facts.routers.empty();
}

} // namespace

void GatherFiles(PcFacts& facts)
{
    for (const Registration& each : facts.registrations) {
        if (each.serverExists) {
            facts.folder = console::Utf8(win32::FolderOf(console::Wide(each.server)));
            break;
        }
    }
    if (facts.folder.empty()) {
        return;
    }
    const fs::path folder(console::Wide(facts.folder));
    facts.logFolderWritable = MayWrite(folder / L"Log");
    LookAtLog(folder / L"Log" / L"MorvanePortRouter.log", facts);
    ULARGE_INTEGER free{};
    if (::GetDiskFreeSpaceExW(folder.c_str(), &free, nullptr, nullptr)) {
        facts.freeBytes = free.QuadPart;
    }
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder / L"Firmware", ignored)) {
        if (entry.path().extension() == L".Out" && entry.file_size(ignored) == 0) {
            facts.emptyFirmware.push_back(NameOf(entry.path()));
        }
    }
}

} // namespace routerlog
