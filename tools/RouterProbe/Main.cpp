// RouterProbe: the router's client for the command line.
#include "Probe.h"
#include "ProbeOptions.h"

#include "console/Console.h"
#include "console/Version.h"

#include <exception>

namespace {

int Fail(const ProbeFault& fault)
{
    return console::Fail("RouterProbe", fault.text, static_cast<int>(fault.code));
}

} // namespace

int wmain(int count, wchar_t** arguments)
{
    try {
        ProbeOptions options;
        const auto wrong = ReadOptions(console::Arguments(count, arguments), options);
        if (options.help) {
            console::Say(ProbeHelp());
            return static_cast<int>(ExitCode::AllGood);
        }
        if (options.version) {
            console::Say(console::VersionLine("RouterProbe"));
            return static_cast<int>(ExitCode::AllGood);
        }
        if (wrong) {
            return Fail(*wrong);
        }
        const auto fault = Probe(options).Run();
        return fault ? Fail(*fault) : static_cast<int>(ExitCode::AllGood);
    } catch (const std::exception& fault) {
        return Fail({ExitCode::Unexpected, fault.what()});
    }
}
