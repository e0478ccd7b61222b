#include "instrument/PlayProgram.h"

#include "console/Console.h"
#include "console/WholeFile.h"
#include "instrument/PacketPrinter.h"

#include <exception>
#include <utility>

namespace {

EngineLoop::Listener ListenerFor(PacketPrinter* printer, const console::ReadySignal& ready,
                                 const std::string& serving)
{
    EngineLoop::Listener listener;
    listener.served = [printer, &ready, &serving] {
        if (printer != nullptr) {
            printer->Line(serving);
            printer->Flush();
        }
        ready.Set();
    };
    if (printer != nullptr) {
        listener.connected = [printer] { printer->Line("router connected"); };
        listener.routerGone = [printer](const std::string& reason) {
            printer->Line(reason.empty() ? "router gone" : "router gone (" + reason + ")");
        };
        listener.vanished = [printer] { printer->Line("instrument vanished"); };
        listener.returned = [printer] { printer->Line("instrument back"); };
        listener.pass = [printer] { printer->Flush(); };
    }
    return listener;
}

EngineLoop::Limits LimitsOf(const PlayOptions& options)
{
    EngineLoop::Limits limits;
    if (options.milliseconds != 0) {
        limits.time = std::chrono::milliseconds(options.milliseconds);
    }
    if (options.requests != 0) {
        limits.requests = static_cast<std::uint64_t>(options.requests);
    }
    return limits;
}

bool HasPlayed(EngineLoop::End end)
{
    return end != EngineLoop::End::Taken && end != EngineLoop::End::Refused;
}

} // namespace

PlayProgram::PlayProgram(std::string name, std::function<std::string()> help)
    : m_name(std::move(name)), m_help(std::move(help))
{
}

std::optional<int> PlayProgram::Read(const std::vector<std::string>& arguments, PlayOptions& options,
                                     std::vector<commandline::Switch> own) const
{
    const auto error = commandline::Parse(arguments, PlaySwitches(options, std::move(own)));
    if (options.help) {
        console::Say(m_help());
        return Good;
    }
    return error ? std::optional(WrongUsage(*error)) : std::nullopt;
}

int PlayProgram::WrongUsage(const std::string& error) const
{
    return console::Fail(m_name, error + " (--help tells more)", console::UsageError);
}

int PlayProgram::Play(const PlayOptions& options, const Place& place, const MakeLoop& makeLoop) const
{
    std::optional<instrument::Bytes> expected;
    if (!options.expectFile.empty()) {
        expected = WholeFile(options.expectFile);
        if (!expected) {
            return console::Fail(m_name, "'" + options.expectFile + "' can't be read", ImageUnreadable);
        }
    }
    const bool imageExpected = expected.has_value();
    const console::StopSignal stop(options.stopEvent);
    const console::ReadySignal ready(options.readyEvent);
    const std::unique_ptr<PacketPrinter> printer(options.quiet ? nullptr : std::make_unique<PacketPrinter>());
    instrument::InstrumentEngine engine(options.script, printer.get(), std::move(expected));
    const std::unique_ptr<EngineLoop> loop =
        makeLoop(engine, stop.Get(), ListenerFor(printer.get(), ready, place.serving));
    const auto start = console::Now();
    const EngineLoop::End end = loop->Run(LimitsOf(options));
    if (printer) {
        printer->Flush();
    }
    if (HasPlayed(end)) {
        console::Say(SummaryOf(engine, console::Now() - start));
    }
    const int code = ExitCodeOf(end, *loop, place);
    if (code == Good && imageExpected && engine.Firmware().match != instrument::FirmwareReport::Match::Same) {
        return console::Fail(m_name, "the expected firmware image did not arrive", ImageWrong);
    }
    return code;
}

int PlayProgram::ExitCodeOf(EngineLoop::End end, const EngineLoop& loop, const Place& place) const
{
    switch (end) {
    case EngineLoop::End::Taken: return console::Fail(m_name, place.taken, Taken);
    case EngineLoop::End::Refused:
        return console::Fail(m_name, place.refused + " (" + loop.Failure() + ")", Refused);
    case EngineLoop::End::Stopped: console::Say("ended: stopped"); break;
    case EngineLoop::End::TimeOver: console::Say("ended: time over"); break;
    case EngineLoop::End::EnoughRequests: console::Say("ended: enough requests"); break;
    }
    return Good;
}

int PlayProgram::Guarded(const std::string& name, const std::function<int()>& run)
{
    try {
        return run();
    } catch (const std::exception& fault) {
        return console::Fail(name, fault.what(), Failed);
    }
}
