#include "win32/RegistryKey.h"

#include <array>
#include <vector>

namespace win32 {

LSTATUS RegistryKey::Open(HKEY parent, const wchar_t* name, REGSAM access, RegistryKey& opened) noexcept
{
    HKEY key = nullptr;
    const LSTATUS status = ::RegOpenKeyExW(parent, name, 0, access, &key);
    opened.m_key.Reset(status == ERROR_SUCCESS ? key : nullptr);
    return status;
}

LSTATUS RegistryKey::Create(HKEY parent, const wchar_t* name, REGSAM access, RegistryKey& created) noexcept
{
    HKEY key = nullptr;
    const LSTATUS status =
        ::RegCreateKeyExW(parent, name, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, &key, nullptr);
    created.m_key.Reset(status == ERROR_SUCCESS ? key : nullptr);
    return status;
}

RegistryKey RegistryKey::Open(HKEY parent, const wchar_t* name, REGSAM access) noexcept
{
    RegistryKey key;
    Open(parent, name, access, key);
    return key;
}

RegistryKey RegistryKey::Create(HKEY parent, const wchar_t* name, REGSAM access) noexcept
{
    RegistryKey key;
    Create(parent, name, access, key);
    return key;
}

std::optional<std::uint32_t> RegistryKey::ReadDword(const wchar_t* name) const noexcept
{
    DWORD type = 0;
    DWORD value = 0;
    DWORD size = sizeof value;
    const LSTATUS status = ::RegQueryValueExW(Get(), name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
    if (status != ERROR_SUCCESS || type != REG_DWORD || size != sizeof value) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::wstring> RegistryKey::ReadString(const wchar_t* name, std::size_t capacity) const
{
    std::vector<wchar_t> buffer(capacity);
    DWORD type = 0;
    DWORD size = static_cast<DWORD>(capacity * sizeof(wchar_t));
    const LSTATUS status =
        ::RegQueryValueExW(Get(), name, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()), &size);
    if (status != ERROR_SUCCESS || type != REG_SZ) {
        return std::nullopt;
    }
    // The stored text need not be terminated.
    const std::size_t length = ::wcsnlen(buffer.data(), size / sizeof(wchar_t));
    return length < capacity ? std::optional(std::wstring(buffer.data(), length)) : std::nullopt;
}

void RegistryKey::WriteDword(const wchar_t* name, std::uint32_t value) const noexcept
{
    const DWORD data = value;
    ::RegSetValueExW(Get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&data), sizeof data);
}

LSTATUS RegistryKey::WriteString(const wchar_t* name, const std::wstring& value) const noexcept
{
    const DWORD size = static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t));
    return ::RegSetValueExW(Get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()), size);
}

std::optional<std::wstring> RegistryKey::SubkeyName(DWORD index) const
{
    std::array<wchar_t, 100> name{};
    DWORD length = static_cast<DWORD>(name.size());
    if (::RegEnumKeyExW(Get(), index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return std::wstring(name.data(), length);
}

} // namespace win32
