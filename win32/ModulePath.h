// Where the running program lies.
#pragma once

#include <optional>
#include <string>

namespace win32 {

/// Full path of the process's own program file, at most 260 characters; none when Windows does not tell.
std::optional<std::wstring> ModulePath();

/// `path` up to and including its last backslash; empty when it has none.
std::wstring FolderOf(const std::wstring& path);

} // namespace win32
