// One line of a log as the account takes it. Portable.
#pragma once

#include "tools/RouterLog/log/LineGrammar.h"
#include "tools/RouterLog/log/LogTime.h"

#include <compare>
#include <cstdint>
#include <string_view>

namespace routerlog {

/// Where something stands in the logs.
struct Where
{
    std::uint32_t file = 0;     // index of the file
    std::uint64_t line = 0;     // in it, from 1
    std::uint64_t sequence = 0; // over all files, from 1
    LogTime time = 0;           // of the line; of the last stamped line when it has no stamp of its own
    bool hasTime = false;       // false before the first stamped line
};

/// Borrows the line's characters.
struct LogLine
{
    Where where;
    std::string_view text; // without stamp
    bool stamped = false;
    LineMatch match;

    Form Kind() const noexcept { return match.format->form; }
};

/// A port as packets name it: device type and port number.
struct PortAddress
{
    std::int32_t deviceType = 0;
    std::int32_t port = 0;
    auto operator<=>(const PortAddress&) const = default;
};

} // namespace routerlog
