// The lines that a report quotes, looked up once more. Portable.
#pragma once

#include "tools/RouterLog/analysis/LogLine.h"
#include "tools/RouterLog/log/LogFiles.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace routerlog {

/// By file and line number. What cannot be read any more is not in it; long lines are cut.
using LineTexts = std::map<std::pair<std::uint32_t, std::uint64_t>, std::string>;

/// Reads the files a second time. `files` in the account's order.
LineTexts TextsOf(const std::vector<Where>& wanted, const std::vector<std::filesystem::path>& files,
                  const OpenFile& open);

} // namespace routerlog
