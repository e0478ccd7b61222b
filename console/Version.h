// The version that all programs share.
#pragma once

#include <string>
#include <string_view>

namespace console {

/// "PROGRAM 1.0.0", the answer to --version.
std::string VersionLine(std::string_view program);

} // namespace console
