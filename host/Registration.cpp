#include "host/Registration.h"

#include "host/RegistrarScript.h"
#include "host/Resource.h"
#include "host/RouterTypeLibrary.h"
#include "win32/ModulePath.h"
#include "win32/RegistryKey.h"
#include "win32/Text.h"

#include <array>
#include <new>

namespace {

constexpr wchar_t ApplicationId[] = L"{2D9F6A71-C04E-4B38-A5E2-91F7B3C8D605}";

/// LocalServer32 holds a command line: a path with a blank in it must stand in quotes, or Windows would look for a
/// program at each of its blanks. Any other path stands as it is.
std::wstring CommandFor(const std::wstring& modulePath)
{
    return modulePath.find(L' ') != std::wstring::npos ? L'"' + modulePath + L'"' : modulePath;
}

RegistrarScript::Replacements ReplacementsOfScripts()
{
    const std::wstring path = RouterModulePath();
    return {
        {L"APPID", ApplicationId},
        {L"MODULE", CommandFor(path)},
        {L"MODULE_RAW", path},
        {L"FOLDER", FolderWithoutBackslash(path)},
        {L"SYSTEM", sizeof(void*) == 8 ? L"win64" : L"win32"},
    };
}

HRESULT LoadScript(int resource, RegistrarScript& script)
{
    const HRSRC found = ::FindResourceW(nullptr, MAKEINTRESOURCEW(resource), L"REGISTRY");
    const HGLOBAL loaded = found != nullptr ? ::LoadResource(nullptr, found) : nullptr;
    if (loaded == nullptr) {
        return HRESULT_FROM_WIN32(::GetLastError());
    }
    const std::string_view text(static_cast<const char*>(::LockResource(loaded)),
                                ::SizeofResource(nullptr, found));
    return script.Parse(win32::FromAnsi(text), ReplacementsOfScripts());
}

HRESULT RunScript(int resource, HKEY root, HRESULT (RegistrarScript::*run)(HKEY) const)
{
    RegistrarScript script;
    const HRESULT result = LoadScript(resource, script);
    return SUCCEEDED(result) ? (script.*run)(root) : result;
}

// For one user the type library goes in by a script as well: Windows' per-user call keeps to the user's hive on some
// systems only (Wine's writes for all users, and always does so in the 32-bit view).
HRESULT RegisterLibrary(RegistrationHive hive, HKEY root)
{
    return hive == RegistrationHive::Machine ? RegisterRouterTypeLibrary()
                                             : RunScript(IDR_TYPELIB_SCRIPT, root, &RegistrarScript::Register);
}

// The script also for the machine: Windows' call fails when the library's own key is gone, and then leaves the interface's
// keys. What that call may not remove, the script may not either, so its result alone counts.
HRESULT UnregisterLibrary(RegistrationHive hive, HKEY root)
{
    if (hive == RegistrationHive::Machine) {
        UnregisterRouterTypeLibrary();
    }
    return RunScript(IDR_TYPELIB_SCRIPT, root, &RegistrarScript::Unregister);
}

HRESULT RegisterAll(RegistrationHive hive, HKEY root)
{
    HRESULT result = RunScript(IDR_APPID, root, &RegistrarScript::Register);
    if (SUCCEEDED(result)) {
        result = RunScript(IDR_MORVANEUSBROUTER, root, &RegistrarScript::Register);
    }
    return SUCCEEDED(result) ? RegisterLibrary(hive, root) : result;
}

HRESULT UnregisterAll(RegistrationHive hive, HKEY root)
{
    const std::array results{
        RunScript(IDR_MORVANEUSBROUTER, root, &RegistrarScript::Unregister),
        UnregisterLibrary(hive, root),
        RunScript(IDR_APPID, root, &RegistrarScript::Unregister),
    };
    for (const HRESULT result : results) {
        if (FAILED(result)) {
            return result;
        }
    }
    return S_OK;
}

HRESULT RunIn(RegistrationHive hive, HRESULT (*run)(RegistrationHive, HKEY))
{
    try {
        // Not HKEY_CLASSES_ROOT, where Windows shows both merged: what the user has there already it would write, and
        // remove, in place of the machine's.
        win32::RegistryKey classes;
        const LSTATUS status =
            win32::RegistryKey::Create(hive == RegistrationHive::Machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER,
                                       L"Software\\Classes", KEY_READ | KEY_WRITE, classes);
        return status == ERROR_SUCCESS ? run(hive, classes.Get()) : HRESULT_FROM_WIN32(status);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace

HRESULT RegisterRouter(RegistrationHive hive)
{
    return RunIn(hive, RegisterAll);
}

HRESULT UnregisterRouter(RegistrationHive hive)
{
    return RunIn(hive, UnregisterAll);
}
