// The keys and values that a registration script lists, written to the registry and removed again.
//
// Windows has a registrar object for such scripts (atl.dll). It is not used here, so that the outcome is the same
// on every system and known from tests: a missing key is skipped on removal, a ForceRemove key is removed with
// all that lies below, the first failing step gives the HRESULT, and a user's hive is written without replacing
// HKEY_CLASSES_ROOT for the process.
#pragma once

#include "host/ScriptParser.h"
#include "win32/Windows.h"

/// Writes the keys with all that they list, in this order; stops at the first step that fails. `view` is
/// KEY_WOW64_64KEY or KEY_WOW64_32KEY: what programs of that kind see.
HRESULT WriteKeys(HKEY parent, const std::vector<RegistrationKey>& keys, REGSAM view);

/// Removes them, as far as they are there. Goes on after a failure and returns the first.
HRESULT RemoveKeys(HKEY parent, const std::vector<RegistrationKey>& keys, REGSAM view);
