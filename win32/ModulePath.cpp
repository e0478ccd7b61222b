#include "win32/ModulePath.h"

namespace win32 {

std::optional<std::wstring> ModulePath()
{
    return ModulePathBy(&::GetModuleFileNameW);
}

std::optional<std::wstring> ModulePathBy(decltype(&::GetModuleFileNameW) moduleFileName)
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = moduleFileName(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) {
            return std::nullopt;
        }
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        // A return of the buffer's size means that the path was cut ("GetModuleFileNameW function"). A cut path
        // would name another folder.
        path.resize(2 * path.size());
    }
}

std::wstring FolderOf(const std::wstring& path)
{
    const std::size_t last = path.rfind(L'\\');
    return last == std::wstring::npos ? std::wstring() : path.substr(0, last + 1);
}

} // namespace win32
