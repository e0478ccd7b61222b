// A registration script: the keys and values that it lists are written, and removed again.
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

/// Used by one thread.
class RegistrarScript
{
public:
    using Key = RegistrationKey;
    using Replacements = ScriptReplacements;

    /// Reads `text` completely before anything is written. HRESULT of ERROR_INVALID_DATA when it is malformed.
    HRESULT Parse(const std::wstring& text, const Replacements& replacements);

    /// Writes all keys and values, in the order of the script; stops at the first that fails. `classes` stands for
    /// the script's HKCR. `view` is KEY_WOW64_64KEY or KEY_WOW64_32KEY: what programs of that kind see.
    HRESULT Register(HKEY classes, REGSAM view) const;

    /// Removes them, as far as they are there. Goes on after a failure and returns the first.
    HRESULT Unregister(HKEY classes, REGSAM view) const;

    /// What was read, below HKCR.
    const std::vector<Key>& Keys() const noexcept { return m_keys; }

private:
    std::vector<Key> m_keys; // below HKCR
};
