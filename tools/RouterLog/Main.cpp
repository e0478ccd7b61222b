// RouterLog: reads the port router's logs for people. It starts no router and is none of its host programs: the
// router neither waits for it nor ends with it.
#include "console/Console.h"
#include "console/Version.h"
#include "tools/RouterLog/Commands.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

namespace {

using routerlog::ExitCode;

int Run(const routerlog::Arguments& arguments)
{
    using Command = std::pair<const char*, int (*)(const routerlog::Arguments&)>;
    constexpr auto commands = std::to_array<Command>({
        {"explain", routerlog::Explain},
        {"follow", routerlog::Follow},
        {"export", routerlog::Export},
        {"doctor", routerlog::Doctor},
        {"bundle", routerlog::Bundle},
    });
    if (arguments.empty() || arguments.front() == "--help" ||
        std::ranges::find(arguments, "--help") != arguments.end())
    {
        console::Say(routerlog::HelpText());
        return static_cast<int>(arguments.empty() ? ExitCode::Usage : ExitCode::Good);
    }
    if (arguments.front() == "--version") {
        console::Say(console::VersionLine("RouterLog"));
        return static_cast<int>(ExitCode::Good);
    }
    const auto found = std::ranges::find(commands, arguments.front(), &Command::first);
    if (found == commands.end()) {
        return routerlog::Fail("unknown command '" + arguments.front() + "' (try --help)", ExitCode::Usage);
    }
    return found->second({arguments.begin() + 1, arguments.end()});
}

} // namespace

namespace routerlog {

int Fail(const std::string& what, ExitCode code)
{
    return console::Fail("RouterLog", what, static_cast<int>(code));
}

} // namespace routerlog

int wmain(int count, wchar_t** arguments)
{
    try {
        return Run(console::Arguments(count, arguments));
    } catch (const std::exception& fault) {
        return routerlog::Fail(fault.what(), ExitCode::Unexpected);
    }
}
