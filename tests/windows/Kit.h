// The whole run on a PC.
#pragma once

#include "tests/windows/Row.h"

namespace windowscheck {

/// A line for each assumption; 0, or 1 when one differs.
int CheckAll();

/// Assumptions, the test programs beside this one (of those only the ones that `only` names, unless it is empty),
/// the soak and the bench. 0, or 1 when anything differs or failed.
int RunKit(int soakSeconds, const std::string& only);

} // namespace windowscheck
