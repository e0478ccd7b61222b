// Incidents in words. Portable.
#pragma once

#include "tools/RouterLog/analysis/Incident.h"

#include <cstdint>
#include <string>

namespace routerlog {

/// One sentence in plain English, with its full stop.
std::string SentenceOf(const Incident& incident);

/// "1 packet", "2 packets", "1,234 packets".
std::string CountOf(std::int64_t count, const char* one, const char* many);
/// "1,234,567".
std::string Grouped(std::int64_t number);
/// "(3,1)".
std::string NameOf(const PortAddress& port);
/// What Windows' error number says about a connection or pipe, or "".
std::string ErrorText(std::int64_t error);

} // namespace routerlog
