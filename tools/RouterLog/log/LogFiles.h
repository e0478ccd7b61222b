// Which files a command means, and in which order they were written. Portable.
#pragma once

#include "tools/RouterLog/log/LineReader.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace routerlog {

/// Opens a file for reading; null when that fails.
using OpenFile = std::function<std::unique_ptr<IByteSource>(const std::filesystem::path&)>;

struct LogFiles
{
    std::vector<std::filesystem::path> files;
    std::string fault; // why there are none, or why one of them cannot be read; UTF-8
};

/// `given` may name files and folders; a folder means all logs in it. A backup stands before its log, logs in the
/// order of their first times, skipped-packet logs last.
LogFiles InOrderOfWriting(const std::vector<std::filesystem::path>& given, const OpenFile& open);

/// The name in UTF-8.
std::string NameOf(const std::filesystem::path& path);

} // namespace routerlog
