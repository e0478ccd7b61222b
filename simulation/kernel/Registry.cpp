#include "simulation/kernel/Registry.h"

#include "simulation/kernel/Call.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"

#include <algorithm>
#include <cstring>

using namespace sim;

namespace {

constexpr std::uintptr_t FirstHandle = 0x1000;

Storage& Machine()
{
    return *TheWorld().storage;
}

std::wstring PathOf(HKEY key)
{
    const auto value = reinterpret_cast<std::uintptr_t>(key);
    if (key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE) {
        return std::to_wstring(value & 0xF);
    }
    if (value < FirstHandle || value - FirstHandle >= Machine().open.size() ||
        Machine().open[value - FirstHandle].empty())
    {
        Fault("a registry key that is not open is used");
    }
    return Machine().open[value - FirstHandle];
}

HKEY Opened(std::wstring path)
{
    Machine().open.push_back(std::move(path));
    return reinterpret_cast<HKEY>(FirstHandle + Machine().open.size() - 1);
}

bool Exists(const std::wstring& path)
{
    return Machine().keys.count(path) != 0;
}

} // namespace

LSTATUS RegOpenKeyExW(HKEY parent, const wchar_t* name, DWORD /*options*/, REGSAM /*access*/, HKEY* key)
{
    Call call("RegOpenKeyExW");
    const std::wstring path = PathOf(parent) + L'\\' + name;
    if (!Exists(path)) {
        return ERROR_FILE_NOT_FOUND;
    }
    *key = Opened(path);
    return ERROR_SUCCESS;
}

LSTATUS RegCreateKeyExW(HKEY parent, const wchar_t* name, DWORD /*reserved*/, wchar_t* /*type*/, DWORD /*options*/,
                        REGSAM /*access*/, SECURITY_ATTRIBUTES* /*security*/, HKEY* key, DWORD* /*disposition*/)
{
    Call call("RegCreateKeyExW");
    std::wstring path = PathOf(parent) + L'\\' + name;
    for (std::size_t at = path.find(L'\\'); at != std::wstring::npos; at = path.find(L'\\', at + 1)) {
        Machine().keys[path.substr(0, at)];
    }
    Machine().keys[path];
    *key = Opened(std::move(path));
    return ERROR_SUCCESS;
}

LSTATUS RegCloseKey(HKEY key)
{
    Call call("RegCloseKey");
    PathOf(key);
    Machine().open[reinterpret_cast<std::uintptr_t>(key) - FirstHandle].clear();
    return ERROR_SUCCESS;
}

LSTATUS RegQueryValueExW(HKEY key, const wchar_t* name, DWORD* /*reserved*/, DWORD* type, BYTE* data, DWORD* size)
{
    Call call("RegQueryValueExW");
    const RegistryValues& values = Machine().keys[PathOf(key)];
    const auto found = values.find(name);
    if (found == values.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    const RegistryValue& value = found->second;
    const DWORD room = *size;
    *size = static_cast<DWORD>(value.data.size());
    *type = value.type;
    if (room < value.data.size()) {
        return ERROR_MORE_DATA;
    }
    std::memcpy(data, value.data.data(), value.data.size());
    return ERROR_SUCCESS;
}

LSTATUS RegSetValueExW(HKEY key, const wchar_t* name, DWORD /*reserved*/, DWORD type, const BYTE* data, DWORD size)
{
    Call call("RegSetValueExW");
    Machine().keys[PathOf(key)][name] = {type, std::vector<BYTE>(data, data + size)};
    return ERROR_SUCCESS;
}

LSTATUS RegEnumKeyExW(HKEY key, DWORD index, wchar_t* name, DWORD* length, DWORD* /*reserved*/, wchar_t* /*type*/,
                      DWORD* /*typeLength*/, FILETIME* /*written*/)
{
    Call call("RegEnumKeyExW");
    const std::wstring prefix = PathOf(key) + L'\\';
    for (const auto& entry : Machine().keys) {
        const std::wstring& path = entry.first;
        if (path.compare(0, prefix.size(), prefix) != 0 || path.find(L'\\', prefix.size()) != std::wstring::npos) {
            continue;
        }
        if (index-- != 0) {
            continue;
        }
        const std::wstring found = path.substr(prefix.size());
        if (found.size() >= *length) {
            return ERROR_MORE_DATA;
        }
        std::wcscpy(name, found.c_str());
        *length = static_cast<DWORD>(found.size());
        return ERROR_SUCCESS;
    }
    return ERROR_NO_MORE_ITEMS;
}
