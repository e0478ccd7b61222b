#include "host/RegistrarScript.h"

#include "win32/RegistryKey.h"

#include <algorithm>

namespace {

using Key = RegistrarScript::Key;

HRESULT SetText(HKEY key, const wchar_t* name, const std::wstring& text)
{
    const auto bytes = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    return HRESULT_FROM_WIN32(
        ::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), bytes));
}

/// Success when there was nothing to remove.
HRESULT Removed(LSTATUS status)
{
    return status == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(status);
}

/// Removes a key with all that lies below it.
HRESULT RemoveTree(HKEY parent, const std::wstring& name, REGSAM view)
{
    {
        win32::RegistryKey handle;
        const LSTATUS status =
            win32::RegistryKey::Open(parent, name.c_str(), KEY_READ | KEY_WRITE | DELETE | view, handle);
        if (status != ERROR_SUCCESS) {
            return Removed(status);
        }
        // What lies below an opened key is in its view ("Accessing an Alternate Registry View").
        const HRESULT result = Removed(::RegDeleteTreeW(handle.Get(), nullptr));
        if (FAILED(result)) {
            return result;
        }
    }
    return Removed(::RegDeleteKeyExW(parent, name.c_str(), view, 0));
}

HRESULT WriteKey(HKEY parent, const Key& key, REGSAM view);

HRESULT WriteContents(HKEY handle, const Key& key, REGSAM view)
{
    if (key.defaultValue) {
        const HRESULT result = SetText(handle, nullptr, *key.defaultValue);
        if (FAILED(result)) {
            return result;
        }
    }
    for (const auto& [name, text] : key.values) {
        const HRESULT result = SetText(handle, name.c_str(), text);
        if (FAILED(result)) {
            return result;
        }
    }
    for (const Key& child : key.children) {
        const HRESULT result = WriteKey(handle, child, view);
        if (FAILED(result)) {
            return result;
        }
    }
    return S_OK;
}

HRESULT WriteKey(HKEY parent, const Key& key, REGSAM view)
{
    if (key.removal == Key::Removal::WithContents) {
        const HRESULT result = RemoveTree(parent, key.name, view);
        if (FAILED(result)) {
            return result;
        }
    }
    win32::RegistryKey handle;
    const LSTATUS status =
        win32::RegistryKey::Create(parent, key.name.c_str(), KEY_READ | KEY_WRITE | view, handle);
    return status == ERROR_SUCCESS ? WriteContents(handle.Get(), key, view) : HRESULT_FROM_WIN32(status);
}

bool IsEmpty(HKEY key)
{
    DWORD subkeys = 0;
    return ::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
           subkeys == 0;
}

HRESULT RemoveKey(HKEY parent, const Key& key, REGSAM view);

/// Removes what the script put into the key; keys that others put there stay.
HRESULT RemoveContents(HKEY handle, const Key& key, REGSAM view)
{
    HRESULT first = S_OK;
    const auto keep = [&first](HRESULT result) { first = SUCCEEDED(first) ? result : first; };
    for (const Key& child : key.children) {
        keep(RemoveKey(handle, child, view));
    }
    for (const auto& entry : key.values) {
        keep(Removed(::RegDeleteValueW(handle, entry.first.c_str())));
    }
    return first;
}

HRESULT RemoveKey(HKEY parent, const Key& key, REGSAM view)
{
    if (key.removal == Key::Removal::WithContents) {
        return RemoveTree(parent, key.name, view);
    }
    HRESULT result = S_OK;
    bool empty = false;
    {
        win32::RegistryKey handle;
        const LSTATUS status =
            win32::RegistryKey::Open(parent, key.name.c_str(), KEY_READ | KEY_WRITE | view, handle);
        if (status != ERROR_SUCCESS) {
            return Removed(status);
        }
        result = RemoveContents(handle.Get(), key, view);
        empty = IsEmpty(handle.Get());
    }
    if (SUCCEEDED(result) && empty && key.removal == Key::Removal::IfEmpty) {
        result = Removed(::RegDeleteKeyExW(parent, key.name.c_str(), view, 0));
    }
    return result;
}

} // namespace

HRESULT RegistrarScript::Parse(const std::wstring& text, const Replacements& replacements)
{
    std::optional<std::vector<Key>> keys = ScriptParser(text, replacements).Parse();
    if (!keys) {
        return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
    }
    m_keys = std::move(*keys);
    return S_OK;
}

HRESULT RegistrarScript::Register(HKEY classes, REGSAM view) const
{
    for (const Key& key : m_keys) {
        const HRESULT result = WriteKey(classes, key, view);
        if (FAILED(result)) {
            return result;
        }
    }
    return S_OK;
}

HRESULT RegistrarScript::Unregister(HKEY classes, REGSAM view) const
{
    HRESULT first = S_OK;
    for (const Key& key : m_keys) {
        const HRESULT result = RemoveKey(classes, key, view);
        first = SUCCEEDED(first) ? result : first;
    }
    return first;
}
