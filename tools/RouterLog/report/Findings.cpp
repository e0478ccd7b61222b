#include "tools/RouterLog/report/Findings.h"

#include "tools/RouterLog/report/Sentences.h"

#include <algorithm>

namespace routerlog {

namespace {

std::string Since(const Where& where)
{
    return where.hasTime ? " since " + FormatTime(where.time) : std::string();
}

Fact RouterFact(const Account& account)
{
    const RouterStory& router = account.Router();
    Fact fact{"Router", {}, TraceClass::Always, true};
    switch (router.Now()) {
    case RouterStory::State::Unknown: fact.text = "The log has no line of the router."; break;
    case RouterStory::State::Running:
        fact.text = "The log is open: at its last line, " + FormatTime(account.LastTime()) +
                    ", the router was running. If it is not now, it was killed or crashed.";
        break;
    case RouterStory::State::TracingOff:
        fact.text = "Tracing to the log is off" + Since(router.Since()) + "; the router may be running.";
        break;
    case RouterStory::State::Ended:
        fact.text = "The router ended at " + FormatTime(router.Since().time) +
                    (router.WhyEnded() == Reason::NoHostProgram ? ", because no host program was running any more."
                     : router.WhyEnded() == Reason::LastProgramWent ? ", because the last program had released it."
                                                                    : "; the log does not tell why.");
        break;
    case RouterStory::State::Vanished: fact.text = "The router vanished."; break;
    }
    return fact;
}

Fact InstrumentFact(const Account& account)
{
    const ConnectionStory& connection = account.Connection();
    Fact fact{"Instrument", {}, TraceClass::Usb, true};
    const std::string what = connection.IsSimulated() ? "The simulator" : "The instrument";
    const bool ended = account.Router().Now() == RouterStory::State::Ended;
    if (!account.IsTraced(TraceClass::Usb)) {
        fact.known = false;
    } else if (connection.Now() == ConnectionStory::State::Connected) {
        fact.text = what + " is connected" + Since(connection.Since()) + ".";
    } else if (connection.Now() == ConnectionStory::State::Searching) {
        fact.text = what + " is not connected" + Since(connection.Since()) + "; " +
                    CountOf(connection.Attempts(), "attempt", "attempts") + " to find it.";
    } else {
        fact.text = ended ? "Nothing is connected: the router ended." : "The log does not tell.";
    }
    return fact;
}

std::string ClientText(const PortPipe& pipe, LogTime now)
{
    std::string text = pipe.address ? NameOf(*pipe.address) + ", pipe " + pipe.name : "pipe " + pipe.name;
    if (PortStory::IsStalled(pipe, now)) {
        return text + ": connected and not reading since " + FormatTime(pipe.stall.First().time) + ", " +
               CountOf(pipe.stall.Most(), "packet waits", "packets wait");
    }
    return text + (pipe.connected ? ": connected" : ": no client") + Since(pipe.since);
}

void AddClients(const Account& account, std::vector<Fact>& facts)
{
    if (!account.IsTraced(TraceClass::Pipe)) {
        facts.push_back({"Clients", {}, TraceClass::Pipe, false});
    }
    for (const PortPipe& pipe : account.Ports().Pipes()) {
        facts.push_back({"Client", ClientText(pipe, account.LastTime()) + ".", TraceClass::Pipe, true});
    }
    if (account.IsTraced(TraceClass::Pipe) && account.Ports().Pipes().empty()) {
        facts.push_back({"Clients", "No port is registered.", TraceClass::Pipe, true});
    }
}

} // namespace

std::vector<Fact> Situation(const Account& account)
{
    std::vector<Fact> facts{RouterFact(account), InstrumentFact(account)};
    if (account.Firmware().IsDownloading()) {
        facts.push_back({"Firmware",
                         account.Firmware().IsUnanswered()
                             ? "The instrument does not answer the firmware download; its ports stay closed."
                             : "A download is in progress" + Since(account.Firmware().Since()) + ", " +
                                   std::to_string(account.Firmware().ChunksAcknowledged()) + " of " +
                                   CountOf(account.Firmware().Chunks(), "chunk", "chunks") + " acknowledged.",
                         TraceClass::Firmware, true});
    }
    AddClients(account, facts);
    if (const auto programs = account.Router().Programs(); programs && account.IsTraced(TraceClass::Dispatch)) {
        facts.push_back({"Programs",
                         CountOf(*programs, "program holds", "programs hold") + " the router's object.",
                         TraceClass::Dispatch, true});
    }
    return facts;
}

std::string UseOf(const Account& account, TraceClass traceClass)
{
    const ClassUse& use = account.Use(traceClass);
    if (use.lines == 0) {
        return use.declared == true ? "traced; nothing of it happened" : "not traced";
    }
    return CountOf(static_cast<std::int64_t>(use.lines), "line", "lines") + ", from " + FormatTime(use.first) +
           " to " + FormatTime(use.last);
}

std::vector<TraceClass> UntracedClasses(const Account& account)
{
    std::vector<TraceClass> untraced;
    for (const TraceClass each : {TraceClass::Usb, TraceClass::Firmware, TraceClass::Pipe, TraceClass::Packets,
                                  TraceClass::Dispatch, TraceClass::ReadWrite})
    {
        if (!account.IsTraced(each) && account.Use(each).declared != true) {
            untraced.push_back(each);
        }
    }
    return untraced;
}

std::string HowToTrace(const std::vector<TraceClass>& classes)
{
    std::string keys;
    for (const TraceClass each : classes) {
        keys += (keys.empty() ? "" : ",") + std::string(TextOf(each).key);
    }
    std::string text =
        "To have more in the next log, on the router's PC, as administrator:\n"
        "    RouterLog doctor --trace-on " +
        keys +
        "\nand restart the router; or, while it runs, in its Debug Options dialog (double click on the "
        "tray icon), the \"Log\" box of:\n";
    for (const TraceClass each : classes) {
        text += "    " + std::string(TextOf(each).name) + ", of " + std::string(TextOf(each).device) + "\n";
    }
    return text;
}

} // namespace routerlog
