#include "host/Registration.h"

#include "host/Resource.h"
#include "win32/ModulePath.h"
#include "win32/RegistryKey.h"
#include "win32/Text.h"

#include <array>
#include <new>

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
        if (const HRESULT removed = RemoveTree(parent, key.name, view); FAILED(removed)) {
            return removed;
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
HRESULT RemoveKey(HKEY parent, const Key& key, REGSAM view)
{
    if (key.removal == Key::Removal::WithContents) {
        return RemoveTree(parent, key.name, view);
    }
    HRESULT result = S_OK; // the first failure
    bool empty = false;
    {
        win32::RegistryKey handle;
        const LSTATUS status =
            win32::RegistryKey::Open(parent, key.name.c_str(), KEY_READ | KEY_WRITE | view, handle);
        if (status != ERROR_SUCCESS) {
            return Removed(status);
        }
        result = RemoveKeys(handle.Get(), key.children, view);
        for (const auto& entry : key.values) {
            const HRESULT removed = Removed(::RegDeleteValueW(handle.Get(), entry.first.c_str()));
            result = SUCCEEDED(result) ? removed : result;
        }
        empty = IsEmpty(handle.Get());
    }
    if (SUCCEEDED(result) && empty && key.removal == Key::Removal::IfEmpty) {
        result = Removed(::RegDeleteKeyExW(parent, key.name.c_str(), view, 0));
    }
    return result;
}

/// LocalServer32 holds a command line: a path with a blank in it must stand in quotes, or Windows would look for a
/// program at each of its blanks. Any other path stands as it is.
std::wstring CommandFor(const std::wstring& modulePath)
{
    return modulePath.find(L' ') != std::wstring::npos ? L'"' + modulePath + L'"' : modulePath;
}

HRESULT LoadScript(int resource, const std::wstring& modulePath, std::vector<Key>& keys)
{
    const HRSRC found = ::FindResourceW(nullptr, MAKEINTRESOURCEW(resource), L"REGISTRY");
    const HGLOBAL loaded = found != nullptr ? ::LoadResource(nullptr, found) : nullptr;
    if (loaded == nullptr) {
        return HRESULT_FROM_WIN32(::GetLastError());
    }
    const std::string_view text(static_cast<const char*>(::LockResource(loaded)),
                                ::SizeofResource(nullptr, found));
    return ReadKeys(win32::FromAnsi(text),
                    {{L"APPID", L"{2D9F6A71-C04E-4B38-A5E2-91F7B3C8D605}"},
                     {L"MODULE", CommandFor(modulePath)},
                     {L"MODULE_RAW", modulePath},
                     {L"FOLDER", modulePath.substr(0, modulePath.rfind(L'\\'))}},
                    keys);
}

/// A part of the registration and the view of the registry that it goes to. The router is a 64-bit program: its
/// class is written as 64-bit programs see it, and so every activating program finds it. An interface's proxy is
/// looked for in the client's own view, and the two views have keys of their own for it, while they share the type
/// library's ("Registry Keys Affected by WOW64").
struct Part
{
    int script;
    REGSAM view;
};

constexpr std::array Parts{
    Part{IDR_APPID, KEY_WOW64_64KEY},          Part{IDR_MORVANEUSBROUTER, KEY_WOW64_64KEY},
    Part{IDR_TYPELIB_SCRIPT, KEY_WOW64_64KEY}, Part{IDR_INTERFACE, KEY_WOW64_64KEY},
    Part{IDR_INTERFACE, KEY_WOW64_32KEY},
};

/// The root is not HKEY_CLASSES_ROOT, where Windows shows both hives merged: what the user has there already it
/// would write, and remove, in place of the machine's.
HRESULT Run(decltype(&WriteKeys) run, RegistrationHive hive, const RegistrationPart& part)
{
    // Every key from here on is opened in the same view ("Accessing an Alternate Registry View").
    win32::RegistryKey classes;
    const LSTATUS status =
        win32::RegistryKey::Create(hive == RegistrationHive::Machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER,
                                   L"Software\\Classes", KEY_READ | KEY_WRITE | part.view, classes);
    return status == ERROR_SUCCESS ? run(classes.Get(), part.keys, part.view) : HRESULT_FROM_WIN32(status);
}

} // namespace

HRESULT ReadKeys(const std::wstring& text, const ScriptReplacements& replacements, std::vector<Key>& keys)
{
    std::optional<std::vector<Key>> read = ParseScript(text, replacements);
    keys = read ? std::move(*read) : std::vector<Key>();
    return read ? S_OK : HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
}

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

HRESULT ReadRegistration(const std::wstring& modulePath, std::vector<RegistrationPart>& parts)
{
    HRESULT result = S_OK;
    for (auto part = Parts.begin(); SUCCEEDED(result) && part != Parts.end(); ++part) {
        parts.push_back({{}, part->view});
        result = LoadScript(part->script, modulePath, parts.back().keys);
    }
    return result;
}

// The type library is registered by a script as well. Windows' own calls for it (RegisterTypeLib and its per-user
// form) register the kind of system that the library was made for only, and the per-user form keeps to the user's
// hive on some systems only.
HRESULT RegisterRouter(RegistrationHive hive)
{
    try {
        std::vector<RegistrationPart> parts;
        HRESULT result = ReadRegistration(win32::ModulePath().value_or(std::wstring()), parts);
        for (auto part = parts.begin(); SUCCEEDED(result) && part != parts.end(); ++part) {
            result = Run(&WriteKeys, hive, *part);
        }
        return result;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT UnregisterRouter(RegistrationHive hive)
{
    try {
        std::vector<RegistrationPart> parts;
        HRESULT first = ReadRegistration(win32::ModulePath().value_or(std::wstring()), parts);
        for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
            const HRESULT result = Run(&RemoveKeys, hive, *part);
            first = SUCCEEDED(first) ? result : first;
        }
        return first;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}
