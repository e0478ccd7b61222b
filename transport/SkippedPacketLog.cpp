#include "transport/SkippedPacketLog.h"

#include "win32/ModulePath.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <memory>

void SkippedPacketLog(int previous, int current)
{
    const std::wstring path =
        win32::FolderOf(win32::ModulePath().value_or(std::wstring())) + L"Log\\USBPortRouterSkippedPacket.log";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(::_wfopen(path.c_str(), L"a"), &std::fclose);
    if (!file) {
        return;
    }
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    std::array<char, 80> stamp{};
    if (::localtime_s(&local, &now) == 0) {
        std::strftime(stamp.data(), stamp.size(), "%x %X", &local);
    }
    std::fprintf(file.get(), "[%s]  Previous Packet#   %d  Current Packet# %d  \n", stamp.data(), previous,
                 current);
}
