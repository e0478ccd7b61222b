// Entering the router in the registry as an automation server by registration scripts, and taking it out again.
//
// Windows has a registrar object for such scripts (atl.dll). It is not used here, so that the outcome is the same
// on every system and known from tests: a missing key is skipped on removal, a ForceRemove key is removed with
// all that lies below, the first failing step gives the HRESULT, and a user's hive is written without replacing
// HKEY_CLASSES_ROOT for the process.
#pragma once

#include "host/ScriptParser.h"
#include "win32/Windows.h"

#include <string>
#include <vector>

/// Where registrations go: for all users, or for the one who runs the program (their Software\Classes).
enum class RegistrationHive { Machine, User };

/// Writes what the scripts in this program's resources list. The first failing step's HRESULT; what was written
/// until then stays for UnregisterRouter to remove.
HRESULT RegisterRouter(RegistrationHive hive);

/// Removes it in the opposite order; what is missing counts as removed. Goes on after a failing step and returns
/// the first one's HRESULT.
HRESULT UnregisterRouter(RegistrationHive hive);

/// The keys of a script, and the view of the registry that they go to (KEY_WOW64_64KEY, KEY_WOW64_32KEY).
struct RegistrationPart
{
    std::vector<RegistrationKey> keys;
    REGSAM view = 0;
};

/// What RegisterRouter writes for a program at `modulePath`, in its order: the installer writes the same keys
/// without running the program.
HRESULT ReadRegistration(const std::wstring& modulePath, std::vector<RegistrationPart>& parts);

/// The keys of a script's text. ERROR_INVALID_DATA, as an HRESULT, when it is malformed.
HRESULT ReadKeys(const std::wstring& text, const ScriptReplacements& replacements,
                 std::vector<RegistrationKey>& keys);

/// Writes the keys with all that they list, in this order; stops at the first step that fails. `view` is
/// KEY_WOW64_64KEY or KEY_WOW64_32KEY: what programs of that kind see.
HRESULT WriteKeys(HKEY parent, const std::vector<RegistrationKey>& keys, REGSAM view);

/// Removes them, as far as they are there. Goes on after a failure and returns the first.
HRESULT RemoveKeys(HKEY parent, const std::vector<RegistrationKey>& keys, REGSAM view);
