// The account as one page that needs nothing else. Portable.
#pragma once

#include "tools/RouterLog/analysis/Account.h"
#include "tools/RouterLog/report/LineTexts.h"

#include <string>

namespace routerlog {

/// HTML with inline SVG and style, light and dark as the reader has it, without script. The account is finished;
/// `texts` holds the lines of its incidents.
std::string HtmlReport(const Account& account, const LineTexts& texts);

} // namespace routerlog
