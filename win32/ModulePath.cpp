#include "win32/ModulePath.h"

#include "win32/Windows.h"

#include <array>

namespace win32 {

std::optional<std::wstring> ModulePath()
{
    std::array<wchar_t, 260> buffer{};
    const DWORD length =
        ::GetModuleFileNameW(::GetModuleHandleW(nullptr), buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) {
        return std::nullopt;
    }
    return std::wstring(buffer.data(), length);
}

std::wstring FolderOf(const std::wstring& path)
{
    const std::size_t last = path.rfind(L'\\');
    return last == std::wstring::npos ? std::wstring() : path.substr(0, last + 1);
}

} // namespace win32
