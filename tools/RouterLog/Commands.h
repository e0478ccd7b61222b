// The commands of RouterLog. Each takes the arguments after its name and returns the exit code.
#pragma once

#include <string>
#include <vector>

namespace routerlog {

enum class ExitCode { Good = 0, Unexpected = 1, Usage = 2, Unreadable = 3, Unwritable = 4, Faults = 5 };

using Arguments = std::vector<std::string>; // UTF-8

int Explain(const Arguments& arguments);
int Follow(const Arguments& arguments);
int Export(const Arguments& arguments);
int Doctor(const Arguments& arguments);
int Bundle(const Arguments& arguments);

std::string HelpText();

/// "RouterLog: what" to standard error.
int Fail(const std::string& what, ExitCode code);

} // namespace routerlog
