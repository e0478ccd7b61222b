// Everything that a registry key holds, in a form that two moments can be compared by.
#pragma once

#include "win32/Windows.h"

#include <set>
#include <string>

using RegistryListing = std::set<std::wstring>;

/// One line for each key below `path` ("A\B") and for each value ("A\B = name, type, bytes in hex"). `view`:
/// KEY_WOW64_32KEY or KEY_WOW64_64KEY, as programs of that kind see it.
RegistryListing ListRegistry(HKEY root, const std::wstring& path, REGSAM view = KEY_WOW64_64KEY);

/// What stands in `now` but not in `before`, a line each; for messages of failed tests.
std::wstring AddedTo(const RegistryListing& before, const RegistryListing& now);
