// Looking for a running program by its name.
#pragma once

#include <cstdint>
#include <string>

/// Process ID of a running program whose executable has exactly that name, in this case of letters; 0 when there
/// is none or Windows gives no list. Any thread.
std::uint32_t FindProcess(const std::wstring& name) noexcept;
