// Where the running program lies.
#pragma once

#include "win32/Windows.h"

#include <optional>
#include <string>

namespace win32 {

/// Full path of the process's own program file, however long; none when Windows does not tell.
std::optional<std::wstring> ModulePath();

/// The same by another call than Windows' own; for tests.
std::optional<std::wstring> ModulePathBy(decltype(&::GetModuleFileNameW) moduleFileName);

/// `path` up to and including its last backslash; empty when it has none.
std::wstring FolderOf(const std::wstring& path);

} // namespace win32
