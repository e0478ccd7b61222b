// InstrumentSimulator: plays the instrument at the router's simulator pipe.
#include "console/Console.h"
#include "tools/PlayInstrument/PlayProgram.h"

namespace {

constexpr const char* Help = R"(InstrumentSimulator: plays the instrument at the router's simulator pipe.

Usage: InstrumentSimulator [switches]

Serves \\.\pipe\UsbPipeSimulator, answers the router's packets and prints a line for each packet it gets:
seconds since the start, packet number, packet type, [device type,port], payload length, first bytes.
The router comes to the pipe when "SimulateUSB" is 1 below
HKEY_LOCAL_MACHINE\Software\Morvane Biosystems\Devices\MorvanePortRouter\DeviceOptions. It may come and go; each
time numbering starts afresh. Without any rule every request is echoed to its sender.

)";

constexpr const char* SwitchHelp =
    R"(  --pipe NAME             serve \\.\pipe\NAME instead (for tests; the router knows only the one above)
)";

constexpr const char* ExitCodeHelp = R"(  3  another program serves the pipe already
  4  the pipe can't be served
)";

} // namespace

int wmain(int count, wchar_t** arguments)
{
    std::string path = R"(\\.\pipe\UsbPipeSimulator)"; // the router knows only this one
    const auto setPipe = [&path](const std::string& name) -> std::optional<commandline::Error> {
        path = R"(\\.\pipe\)" + name;
        return name.empty() ? std::optional("a name is missing") : std::nullopt;
    };
    const instrument::PlayProgram program{
        "InstrumentSimulator",
        Help,
        SwitchHelp,
        ExitCodeHelp,
        {{"--pipe", true, setPipe}},
        [&path](instrument::Engine& engine, HANDLE stop) {
            return instrument::PlayProgram::Place{
                instrument::MakePipeEndpoint(console::Wide(path), engine, stop), "serving " + path,
                path + " is served by another program already", path + " can't be served"};
        }};
    return instrument::Run(program, count, arguments);
}
