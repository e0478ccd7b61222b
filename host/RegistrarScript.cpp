#include "host/RegistrarScript.h"

#include "win32/RegistryKey.h"

namespace {

using Key = RegistrationKey;

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

HRESULT WriteContents(const win32::RegistryKey& handle, const Key& key, REGSAM view)
{
    LSTATUS status = key.defaultValue ? handle.WriteString(nullptr, *key.defaultValue) : ERROR_SUCCESS;
    for (auto value = key.values.begin(); status == ERROR_SUCCESS && value != key.values.end(); ++value) {
        status = handle.WriteString(value->first.c_str(), value->second);
    }
    return status == ERROR_SUCCESS ? WriteKeys(handle.Get(), key.children, view) : HRESULT_FROM_WIN32(status);
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
    return status == ERROR_SUCCESS ? WriteContents(handle, key, view) : HRESULT_FROM_WIN32(status);
}

bool IsEmpty(HKEY key)
{
    DWORD subkeys = 0;
    return ::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
           subkeys == 0;
}

/// Removes what the script put into the key; keys that others put there stay.
HRESULT RemoveContents(HKEY handle, const Key& key, REGSAM view)
{
    HRESULT first = RemoveKeys(handle, key.children, view);
    for (const auto& entry : key.values) {
        const HRESULT result = Removed(::RegDeleteValueW(handle, entry.first.c_str()));
        first = SUCCEEDED(first) ? result : first;
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

HRESULT WriteKeys(HKEY parent, const std::vector<Key>& keys, REGSAM view)
{
    HRESULT result = S_OK;
    for (auto key = keys.begin(); SUCCEEDED(result) && key != keys.end(); ++key) {
        result = WriteKey(parent, *key, view);
    }
    return result;
}

HRESULT RemoveKeys(HKEY parent, const std::vector<Key>& keys, REGSAM view)
{
    HRESULT first = S_OK;
    for (const Key& key : keys) {
        const HRESULT result = RemoveKey(parent, key, view);
        first = SUCCEEDED(first) ? result : first;
    }
    return first;
}
