// The account as text for people. Portable.
#pragma once

#include "tools/RouterLog/analysis/Account.h"

#include <string>

namespace routerlog {

/// UTF-8, lines ending with LF. The account is finished.
std::string TextReport(const Account& account);

/// Text of unknown origin for a terminal or a page: control characters and bytes that are no ASCII become "\xHH".
std::string Printable(std::string_view text);

} // namespace routerlog
