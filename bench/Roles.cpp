#include "bench/Roles.h"

#include "console/CommandLine.h"
#include "console/Console.h"
#include "tests/support/UniqueName.h"

#include <stdexcept>

namespace bench {

int PlayRole(const std::vector<std::string>& arguments)
{
    std::string role;
    RoleNames names;
    const auto text = [](std::wstring& target) {
        return [&target](const std::string& value) -> std::optional<commandline::Error> {
            target = console::Wide(value);
            return std::nullopt;
        };
    };
    const auto fault = commandline::Parse(arguments, {{"--role", true, commandline::Store(role)},
                                                      {"--pipe", true, text(names.pipe)},
                                                      {"--simulator", true, text(names.simulator)},
                                                      {"--ready", true, text(names.ready)},
                                                      {"--record", true, text(names.record)},
                                                      {"--framed", false, commandline::Set(names.framed)}});
    if (fault) {
        return console::Fail("bench", *fault, console::UsageError);
    }
    if (role == "instrument") {
        return PlayInstrument(names);
    }
    if (role == "bus") {
        return PlayBusInstrument(names);
    }
    if (role == "barePipeline") {
        return PlayBarePipeline(names);
    }
    return role == "nobody" ? 0 : console::UsageError;
}

RoleProcess::RoleProcess(const std::wstring& role, RoleNames names)
{
    names.ready = support::UniqueName(L"BenchReady");
    const win32::KernelHandle ready(::CreateEventW(nullptr, TRUE, FALSE, names.ready.c_str()));
    std::wstring arguments = L"--role " + role + L" --ready " + names.ready;
    const auto add = [&arguments](const wchar_t* name, const std::wstring& value) {
        if (!value.empty()) {
            arguments += std::wstring(L" --") + name + L" " + value;
        }
    };
    add(L"pipe", names.pipe);
    add(L"simulator", names.simulator);
    add(L"record", names.record);
    arguments += names.framed ? L" --framed" : L"";
    m_process = std::make_unique<support::ChildProcess>(support::ProgramFolder() / L"bench.exe", arguments);
    if (!support::WaitFor(ready.Get())) {
        throw std::runtime_error("a child process does not get ready: " + console::Utf8(arguments));
    }
}

} // namespace bench
