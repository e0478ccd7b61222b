// The account as JSON for programs. Portable.
#pragma once

#include "tools/RouterLog/analysis/Account.h"

#include <string>

namespace routerlog {

/// Of the form of the document: what programs rely on. New members do not change it.
inline constexpr int JsonVersion = 1;

/// One object. A number that needs a class that is not traced is null. The account is finished.
std::string JsonReport(const Account& account);

} // namespace routerlog
