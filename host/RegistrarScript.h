// A registration script: the keys and values that it lists are written, and removed again.
//
// Windows has a registrar object for such scripts (atl.dll). It is not used here, so that the outcome is the same
// on every system and known from tests: a missing key is skipped on removal, a ForceRemove key goes with all that
// lies below, the first failing step gives the HRESULT, and a user's hive is written without replacing
// HKEY_CLASSES_ROOT for the process.
//
// The format, words apart by white space, a word with blanks in single quotes ('' stands for one quote):
//
//   HKCR
//   {
//       NoRemove Name                  shared with others: never removed
//       {
//           ForceRemove Name = s Text  with its default value; emptied before it is written
//           {
//               val Name = s Text      a named value of the key around it
//               Name                   removed if nothing is left in it
//           }
//       }
//   }
#pragma once

#include "win32/Windows.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Used by one thread.
class RegistrarScript
{
public:
    /// "%NAME%" in a word stands for the text of NAME, which is taken as it is; "%%" stands for "%".
    using Replacements = std::map<std::wstring, std::wstring>;

    /// Reads `text` completely before anything is written. HRESULT of ERROR_INVALID_DATA when it is malformed.
    HRESULT Parse(const std::wstring& text, const Replacements& replacements);

    /// Writes all keys and values, in the order of the script; stops at the first that fails. `classes` stands for
    /// the script's HKCR. `view` is KEY_WOW64_64KEY or KEY_WOW64_32KEY: what programs of that kind see.
    HRESULT Register(HKEY classes, REGSAM view) const;

    /// Removes them, as far as they are there. Goes on after a failure and returns the first.
    HRESULT Unregister(HKEY classes, REGSAM view) const;

    struct Key
    {
        enum class Removal { IfEmpty, Never, WithContents };

        std::wstring name;
        Removal removal = Removal::IfEmpty;
        std::optional<std::wstring> defaultValue;
        std::vector<std::pair<std::wstring, std::wstring>> values;
        std::vector<Key> children;
    };

    /// What was read, below HKCR.
    const std::vector<Key>& Keys() const noexcept { return m_keys; }

private:
    std::vector<Key> m_keys; // below HKCR
};
