// InstrumentSimulator: plays the instrument behind the router's simulator pipe.
#include "PacketPrinter.h"
#include "SimulatorOptions.h"

#include "tools/common/Console.h"
#include "tools/common/PipeInstrument.h"
#include "tools/common/WholeFile.h"

#include <memory>

namespace {

constexpr const char* Program = "InstrumentSimulator";

enum ExitCode { Good = 0, PipeTaken = 3, PipeRefused = 4, ImageUnreadable = 5, ImageWrong = 6 };

PipeInstrument::Listener ListenerFor(PacketPrinter* printer, const SimulatorOptions& options)
{
    PipeInstrument::Listener listener;
    if (!options.readyEvent.empty()) {
        listener.served = [&options] { console::Announce(options.readyEvent); };
    }
    if (printer != nullptr) {
        listener.connected = [printer] { printer->Line("router connected"); };
        listener.routerGone = [printer](DWORD error) {
            printer->Line("router gone (" + std::to_string(error) + ")");
        };
        listener.vanished = [printer] { printer->Line("instrument vanished"); };
        listener.returned = [printer] { printer->Line("instrument back"); };
        listener.pass = [printer] { printer->Flush(); };
    }
    return listener;
}

PipeInstrument::Limits LimitsOf(const SimulatorOptions& options)
{
    PipeInstrument::Limits limits;
    if (options.milliseconds != 0) {
        limits.time = std::chrono::milliseconds(options.milliseconds);
    }
    if (options.requests != 0) {
        limits.requests = static_cast<std::uint64_t>(options.requests);
    }
    return limits;
}

int ExitCodeOf(PipeInstrument::End end, const PipeInstrument& pipe, const std::string& path,
               const instrument::InstrumentEngine& engine, bool imageExpected)
{
    if (end == PipeInstrument::End::PipeTaken) {
        return console::Fail(Program, path + " is served by somebody else already", PipeTaken);
    }
    if (end == PipeInstrument::End::PipeRefused) {
        return console::Fail(Program, path + " can't be served (" + std::to_string(pipe.Error()) + ")",
                             PipeRefused);
    }
    console::Say(std::string("ended: ") + (end == PipeInstrument::End::Stopped    ? "stopped"
                                           : end == PipeInstrument::End::TimeOver ? "time over"
                                                                                  : "enough requests"));
    if (imageExpected && engine.Firmware().match != instrument::FirmwareReport::Match::Same) {
        return console::Fail(Program, "the expected firmware image did not arrive", ImageWrong);
    }
    return Good;
}

int Run(const SimulatorOptions& options)
{
    std::optional<instrument::Bytes> expected;
    if (!options.expectFile.empty()) {
        expected = WholeFile(options.expectFile);
        if (!expected) {
            return console::Fail(Program, "'" + options.expectFile + "' can't be read", ImageUnreadable);
        }
    }
    const bool imageExpected = expected.has_value();
    const console::StopSignal stop(options.stopEvent);
    const std::unique_ptr<PacketPrinter> printer(options.quiet ? nullptr : std::make_unique<PacketPrinter>());
    instrument::InstrumentEngine engine(options.script, printer.get(), std::move(expected));
    const std::string path = R"(\\.\pipe\)" + options.pipeName;
    PipeInstrument pipe(console::Wide(path), engine, stop.Get(), ListenerFor(printer.get(), options));
    if (printer) {
        printer->Line("serving " + path);
    }
    const auto start = console::Now();
    const PipeInstrument::End end = pipe.Run(LimitsOf(options));
    if (printer) {
        printer->Flush();
    }
    if (end != PipeInstrument::End::PipeTaken && end != PipeInstrument::End::PipeRefused) {
        console::Say(SummaryOf(engine, console::Now() - start));
    }
    return ExitCodeOf(end, pipe, path, engine, imageExpected);
}

} // namespace

int wmain(int count, wchar_t** arguments)
{
    try {
        SimulatorOptions options;
        const auto error = ReadOptions(console::Arguments(count, arguments), options);
        if (options.help) {
            console::Say(SimulatorHelp());
            return Good;
        }
        if (error) {
            return console::Fail(Program, *error + " (--help tells more)", console::UsageError);
        }
        return Run(options);
    } catch (const std::exception& fault) {
        return console::Fail(Program, fault.what(), 1);
    }
}
