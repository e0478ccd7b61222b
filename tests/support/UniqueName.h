// Names that no other test, in this process or another, uses at the same time.
#pragma once

#include <string>
#include <string_view>

namespace support {

/// `prefix`, the process id and a counter, such as L"Echo-252-7". Any thread. Free of backslashes when the
/// prefix is, so it serves as the name of a pipe, a mutex, a registry key or a file.
std::wstring UniqueName(std::wstring_view prefix);

/// The same for programming interfaces with narrow text.
std::string UniqueName(std::string_view prefix);

/// The path by which a pipe of that name is opened.
std::wstring PipePath(std::wstring_view name);

} // namespace support
