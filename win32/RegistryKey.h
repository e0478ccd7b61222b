// An open registry key.
#pragma once

#include "win32/Handle.h"

#include <cstdint>
#include <optional>
#include <string>

namespace win32 {

/// Owner of an open key. Reads and writes fail silently, as the configuration's users want it: a value that is
/// missing or has another type reads as "none".
class RegistryKey
{
public:
    RegistryKey() noexcept = default;

    /// Open with `access`; test the result before use.
    static RegistryKey Open(HKEY parent, const wchar_t* name, REGSAM access) noexcept;
    static RegistryKey Create(HKEY parent, const wchar_t* name, REGSAM access) noexcept;

    /// The same for callers that want to know why not: Windows' error code, and on success the key in `opened`.
    static LSTATUS Open(HKEY parent, const wchar_t* name, REGSAM access, RegistryKey& opened) noexcept;
    static LSTATUS Create(HKEY parent, const wchar_t* name, REGSAM access, RegistryKey& created) noexcept;

    explicit operator bool() const noexcept { return static_cast<bool>(m_key); }
    HKEY Get() const noexcept { return m_key.Get(); }

    /// A REG_DWORD value; none when missing or of another type.
    std::optional<std::uint32_t> ReadDword(const wchar_t* name) const noexcept;
    /// A REG_SZ value of at most `capacity` characters with its terminator; none when missing, longer or of
    /// another type.
    std::optional<std::wstring> ReadString(const wchar_t* name, std::size_t capacity) const;
    void WriteDword(const wchar_t* name, std::uint32_t value) const noexcept;
    /// Windows' error code, for those who want it.
    LSTATUS WriteString(const wchar_t* name, const std::wstring& value) const noexcept;

    /// Name of the subkey at `index`, at most 99 characters; none at the end (or when the name is longer, which
    /// ends an enumeration as well).
    std::optional<std::wstring> SubkeyName(DWORD index) const;

private:
    struct Policy
    {
        static HKEY None() noexcept { return nullptr; }
        static bool Close(HKEY key) noexcept { return ::RegCloseKey(key) == ERROR_SUCCESS; }
    };

    UniqueHandle<Policy> m_key;
};

} // namespace win32
