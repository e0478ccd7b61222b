// What a report says beside the incidents: the situation at the end and what is not traced. Portable.
#pragma once

#include "tools/RouterLog/analysis/Account.h"

#include <string>
#include <vector>

namespace routerlog {

/// One fact of the situation at the end.
struct Fact
{
    std::string subject; // "Router", "Instrument", "Firmware", "Clients", ...
    std::string text;    // a sentence
    TraceClass traceClass = TraceClass::Always;
    bool known = true; // false: the class is not traced
};

/// The situation after the last line; the account is finished.
std::vector<Fact> Situation(const Account& account);

/// "not traced" or "1,234 lines, from .. to ..".
std::string UseOf(const Account& account, TraceClass traceClass);

/// The classes that the logs hold no line of, except General.
std::vector<TraceClass> UntracedClasses(const Account& account);

/// How to have them traced next time; several lines.
std::string HowToTrace(const std::vector<TraceClass>& classes);

} // namespace routerlog
