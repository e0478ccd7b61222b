// InstrumentSimulator: plays the instrument behind the router's simulator pipe.
#include "console/Console.h"
#include "instrument/PipeInstrument.h"
#include "instrument/PlayProgram.h"

#include <memory>

namespace {

std::string Help()
{
    return std::string(R"(InstrumentSimulator: plays the instrument behind the router's simulator pipe.

Usage: InstrumentSimulator [switches]

Serves \\.\pipe\UsbPipeSimulator, answers the router's packets and prints a line for each packet it gets:
seconds since the start, packet number, packet type, [device type,port], payload length, first bytes.
The router comes to the pipe when "SimulateUSB" is 1 below
HKEY_LOCAL_MACHINE\Software\Morvane Biosystems\Devices\MorvanePortRouter\DeviceOptions. It may come and go; each
time numbering starts afresh. Without any rule every request is echoed to its sender.

)") + PlayRunHelp() +
           R"(  --pipe NAME             serve \\.\pipe\NAME instead (for tests; the router knows only the one above)
)" + PlayScriptHelp(R"(  3  somebody else serves the pipe already
  4  the pipe can't be served
)");
}

int Run(const std::vector<std::string>& arguments)
{
    PlayOptions options;
    std::string pipeName = "UsbPipeSimulator"; // the router knows only this one
    const PlayProgram program{"InstrumentSimulator", Help};
    if (const auto code = program.Read(arguments, options, {{"--pipe", true, commandline::Store(pipeName)}})) {
        return *code;
    }
    if (pipeName.empty()) {
        return program.WrongUsage("'--pipe': a name is missing");
    }
    const std::string path = R"(\\.\pipe\)" + pipeName;
    return program.Play(
        options, {"serving " + path, path + " is served by somebody else already", path + " can't be served"},
        [&](instrument::InstrumentEngine& engine, HANDLE stop, EngineLoop::Listener listener) {
            return std::make_unique<PipeInstrument>(console::Wide(path), engine, stop, std::move(listener));
        });
}

} // namespace

int wmain(int count, wchar_t** arguments)
{
    return PlayProgram::Guarded("InstrumentSimulator", [&] { return Run(console::Arguments(count, arguments)); });
}
