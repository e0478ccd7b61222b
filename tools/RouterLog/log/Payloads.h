// Logs without what packets hold. Portable.
#pragma once

#include "tools/RouterLog/log/LineReader.h"

#include <cstdint>
#include <string>

namespace routerlog {

/// The log's lines, CR LF after each, with "(left out)" for each dump. Of lines that the router did not write only
/// their number of characters is kept, for a cut dump may be among them. `onlyLast`: at most so many bytes, the
/// last ones.
std::string WithoutPayloads(IByteSource& source, std::uint64_t onlyLast);

} // namespace routerlog
