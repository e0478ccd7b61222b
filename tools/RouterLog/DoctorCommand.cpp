// doctor: what is wrong with this PC, and the trace masks.
#include "console/CommandLine.h"
#include "console/Console.h"
#include "tools/RouterLog/Commands.h"
#include "tools/RouterLog/doctor/Diagnosis.h"
#include "tools/RouterLog/pc/GatherFacts.h"
#include "tools/RouterLog/pc/RouterSettings.h"

namespace routerlog {

namespace {

constexpr std::chrono::seconds CallLimit{20};

struct DoctorOptions
{
    bool activate = false;
    std::string traceOn, traceOff; // classes, separated by commas
    std::vector<std::string> pipes;
};

std::optional<std::string> Read(const Arguments& arguments, DoctorOptions& options)
{
    const commandline::Handler pipe = [&options](const std::string& value) -> std::optional<std::string> {
        options.pipes.push_back(value);
        return std::nullopt;
    };
    return commandline::Parse(arguments, {{"--activate", false, commandline::Set(options.activate)},
                                          {"--trace-on", true, commandline::Store(options.traceOn)},
                                          {"--trace-off", true, commandline::Store(options.traceOff)},
                                          {"--pipe", true, pipe}});
}

int ChangeTraces(const std::string& words, bool on)
{
    const auto classes = ParseClasses(words);
    if (!classes) {
        return Fail("'" + words +
                        "': classes are raw, packets, pipe, usb, firmware, dispatch, general, or all, separated "
                        "by commas",
                    ExitCode::Usage);
    }
    const auto done = ChangeMasks(*classes, on);
    if (!done) {
        return Fail("the router's settings cannot be written: administrators may", ExitCode::Unwritable);
    }
    console::Say(
        *done +
        "A router takes this at its start; one that runs now keeps its masks. Devices of ports appear here "
        "once their ports were registered.\n");
    return static_cast<int>(ExitCode::Good);
}

} // namespace

int Doctor(const Arguments& arguments)
{
    DoctorOptions options;
    if (const auto wrong = Read(arguments, options)) {
        return Fail(*wrong, ExitCode::Usage);
    }
    for (const bool on : {false, true}) {
        const std::string& words = on ? options.traceOn : options.traceOff;
        const int code = words.empty() ? 0 : ChangeTraces(words, on);
        if (code != 0) {
            return code;
        }
    }
    if (!options.traceOn.empty() || !options.traceOff.empty()) {
        return static_cast<int>(ExitCode::Good);
    }
    PcFacts facts = GatherFacts(options.pipes);
    if (options.activate) {
        console::Say(facts.routers.empty() ? "Starting the router to call it; it ends again afterwards.\n"
                                           : "Calling the router that is running.\n");
        facts.activation = Activate(CallLimit);
    }
    const std::vector<Finding> findings = Diagnose(facts, OwnVersion());
    console::Say(DiagnosisText(facts, findings));
    return static_cast<int>(findings.empty() ? ExitCode::Good : ExitCode::Faults);
}

} // namespace routerlog
