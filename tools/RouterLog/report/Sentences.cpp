#include "tools/RouterLog/report/Sentences.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace routerlog {

namespace {

/// "port (3,1), pipe Reader": as much of it as is known.
std::string PortOf(const Incident& incident)
{
    std::string text;
    if (incident.port) {
        text = NameOf(*incident.port);
    }
    if (!incident.name.empty()) {
        text += (text.empty() ? "pipe " : ", pipe ") + incident.name;
    }
    return text;
}

std::string Instrument(const Incident& incident)
{
    return incident.simulated ? "The simulator" : "The instrument";
}

std::string After(const Incident& incident, const char* before, const char* after = "")
{
    return incident.duration >= 0 ? before + FormatDuration(incident.duration) + after : std::string();
}

/// " within 2.0 s" for what took a while.
std::string Within(const Incident& incident)
{
    return incident.duration > 0 ? " within " + FormatDuration(incident.duration) : std::string();
}

std::string Error(const Incident& incident)
{
    const std::string text = ErrorText(incident.first);
    return "Windows error " + std::to_string(incident.first) + (text.empty() ? "" : ": " + text);
}

std::string RouterEnded(const Incident& incident)
{
    switch (incident.reason) {
    case Reason::NoHostProgram: return "The router ended by itself, because no host program was running any more.";
    case Reason::LastProgramWent: return "The router ended, because the last program had released it.";
    default: return "The router ended in good order; the log does not tell why.";
    }
}

std::string RouterSentence(const Incident& incident)
{
    switch (incident.kind) {
    case IncidentKind::LogBegins: return "The log begins: the router started, or its tracing was turned on.";
    case IncidentKind::RouterStarted:
        return incident.traceClass != TraceClass::Usb ? "The router started."
             : incident.simulated                     ? "The router started, to be used with the simulator."
                                                      : "The router started, to be used over USB.";
    case IncidentKind::TracingTurnedOn: return "Tracing to the log was turned on again.";
    case IncidentKind::TracingTurnedOff: return "Tracing to the log was turned off.";
    case IncidentKind::RouterEnded: return RouterEnded(incident);
    case IncidentKind::RouterVanished:
        return "The router vanished without closing its log: it was killed, it crashed, or the PC went down. It "
               "started again " +
               FormatDuration(std::max<std::int64_t>(incident.duration, 0)) + " after its last line.";
    case IncidentKind::LinesNotWritten:
        return CountOf(incident.count, "line", "lines") + " could not be written before the router ended.";
    case IncidentKind::LogOverflow:
        return "The log overflowed: more was traced than the disk took, and " +
               CountOf(incident.count, "line is", "lines are") + " missing here.";
    case IncidentKind::LinesMissing:
        return "Lines are missing here: the log could not be written for a while, or this file and the one before "
               "it do not "
               "belong together.";
    case IncidentKind::ClockSetBack:
        return "The PC's clock was set back by " + FormatDuration(incident.duration) +
               "; times before and after do not compare.";
    case IncidentKind::NothingTraced:
        return "Nothing was traced for " + FormatDuration(incident.duration) +
               ": the Debug Options dialog was open, tracing was changed, the PC slept, or its clock was set.";
    case IncidentKind::ProgramCame:
        return "A program began to use the router" +
               (incident.count >= 0 ? " (" + std::to_string(incident.count) + " now)." : std::string("."));
    case IncidentKind::ProgramWent:
        return "A program released the router" +
               (incident.count >= 0 ? " (" + std::to_string(incident.count) + " left)." : std::string("."));
    case IncidentKind::HostGone: return "No host program was running any more; the router ended itself.";
    case IncidentKind::RouterFailure: return "Inside the router something failed: " + incident.name + ".";
    case IncidentKind::ReplyError:
        return "Handling a block from the instrument failed inside the router; the packet in hand was lost.";
    default: return {};
    }
}

std::string LostSentence(const Incident& incident)
{
    const std::string what =
        Instrument(incident) + (incident.simulated ? " went away" : " was unplugged or went away");
    const std::string after = After(incident, ", after ", " of connection");
    if (incident.second == 1) {
        return what + after + " (noticed while reading, " + Error(incident) + ").";
    }
    return what + after + (incident.second == 2 ? " (noticed while writing)." : ".");
}

std::string ConnectedSentence(const Incident& incident)
{
    std::array<char, 32> product{};
    if (incident.second > 0) {
        std::snprintf(product.data(), product.size(), " (product 0x%04X)", static_cast<unsigned>(incident.second));
    }
    const std::string what = Instrument(incident) + product.data();
    if (incident.kind == IncidentKind::InstrumentReconnected) {
        return what + " was reconnected after " + FormatDuration(incident.duration) + ".";
    }
    return what + " was connected" + After(incident, ", ", " after the router began to look for it") + ".";
}

std::string GapSentence(const Incident& incident)
{
    return "Gap of " + CountOf(incident.count, "packet", "packets") +
           " (modulo 256) in the instrument's numbering: number " + std::to_string(incident.second) +
           " came where " + std::to_string(incident.first) + " was due" +
           (incident.traceClass == TraceClass::Always ? " (from the skipped-packet log)." : ".");
}

std::string ConnectionSentence(const Incident& incident)
{
    const std::string packets = CountOf(incident.count, "packet", "packets");
    switch (incident.kind) {
    case IncidentKind::InstrumentConnected:
    case IncidentKind::InstrumentReconnected: return ConnectedSentence(incident);
    case IncidentKind::InstrumentLost: return LostSentence(incident);
    case IncidentKind::ReadingStopped:
        return "A read from the instrument failed without an error of Windows: nothing is read any more until the "
               "router connects again.";
    case IncidentKind::NumberGap: return GapSentence(incident);
    case IncidentKind::WritesAborted:
        return "The instrument did not take packets in time: " +
               CountOf(incident.count, "write was", "writes were") + " aborted" + Within(incident) + ", and " +
               (incident.count == 1 ? "its packet is" : "their packets are") + " lost.";
    case IncidentKind::SimulatorSlow:
        return "The simulator did not take packets" +
               (incident.duration > 0 ? " for " + FormatDuration(incident.duration) : std::string()) + ".";
    case IncidentKind::RequestsDropped:
        return CountOf(incident.count, "request", "requests") + " of clients " +
               (incident.count == 1 ? "was" : "were") + " dropped" + Within(incident) +
               ": the instrument was not ready.";
    case IncidentKind::UnknownDestination:
        return packets + " from the instrument for " +
               (incident.port ? NameOf(*incident.port) : "an unknown port") +
               (incident.count == 1 ? " was" : " were") + " dropped" + Within(incident) +
               ": no such port is registered.";
    default: return {};
    }
}

std::string FirmwareEnd(const Incident& incident)
{
    switch (incident.reason) {
    case Reason::Denied: return "the instrument answered DENY";
    case Reason::SizeRefused: return "the instrument's RECEIVE_READY did not fit the image";
    case Reason::DownloadFail: return "the instrument answered DOWNLOAD_FAIL";
    case Reason::FirmwareReady: return "the instrument answered FIRMWARE_READY";
    case Reason::Rebooting: return "the instrument answered REBOOTING";
    default: return "the instrument's answer was none that the router knows";
    }
}

std::string FirmwareSentence(const Incident& incident)
{
    const std::string chunks = incident.second > 0 ? ", after " + std::to_string(incident.first) + " of " +
                                                         CountOf(incident.second, "chunk", "chunks")
                                                   : std::string();
    switch (incident.kind) {
    case IncidentKind::FirmwareDownloaded:
        return "Firmware downloaded in " + FormatDuration(incident.duration) + " (" +
               CountOf(incident.count, "byte", "bytes") + " in " + CountOf(incident.second, "chunk", "chunks") +
               ").";
    case IncidentKind::FirmwareRefused:
        return "The instrument refused the firmware: " + FirmwareEnd(incident) + ".";
    case IncidentKind::FirmwareFailed:
        return "The firmware download ended early" + chunks + ": " + FirmwareEnd(incident) + ".";
    case IncidentKind::FirmwareInterrupted:
        return "The firmware download was interrupted" + chunks + ", " + FormatDuration(incident.duration) +
               " after its start.";
    case IncidentKind::FirmwareUnanswered:
        return "The instrument never answered the firmware download, asked " + std::to_string(incident.count) +
               " times; its ports stay closed.";
    default: return {};
    }
}

std::string PortSentence(const Incident& incident)
{
    const std::string port = PortOf(incident);
    switch (incident.kind) {
    case IncidentKind::PortOpened: return "A port was registered: " + port + ".";
    case IncidentKind::PortClosed:
        return "The port was closed, " +
               std::string(incident.count > 0 ? "with its client connected: " : "without a client: ") + port + ".";
    case IncidentKind::ClientCame: return "The client of " + port + " connected.";
    case IncidentKind::ClientWent:
        return "The client of " + port + " went away" + After(incident, ", after ", " of connection") + " (" +
               Error(incident) + ").";
    case IncidentKind::ClientCutOff:
        return "The client of " + port + " was cut off by the router, because the connection to the instrument " +
               "changed" + After(incident, "; it had been connected for ") + ".";
    case IncidentKind::ClientStalled:
        return "The client of " + port + " stopped reading for " + FormatDuration(incident.duration) + "; up to " +
               CountOf(incident.first, "packet", "packets") + " waited for it.";
    case IncidentKind::RepliesDropped:
        return CountOf(incident.count, "packet", "packets") + " for " + port +
               (incident.count == 1 ? " was" : " were") + " dropped" + Within(incident) +
               ": its client was not connected.";
    default: return {};
    }
}

} // namespace

std::string Grouped(std::int64_t number)
{
    const std::string digits = std::to_string(number);
    std::string text;
    for (std::size_t at = 0; at < digits.size(); ++at) {
        const std::size_t left = digits.size() - at;
        if (at > 0 && left % 3 == 0 && digits[at - 1] != '-') {
            text += ',';
        }
        text += digits[at];
    }
    return text;
}

std::string CountOf(std::int64_t count, const char* one, const char* many)
{
    return Grouped(count) + " " + (count == 1 ? one : many);
}

std::string NameOf(const PortAddress& port)
{
    return "(" + std::to_string(port.deviceType) + "," + std::to_string(port.port) + ")";
}

std::string ErrorText(std::int64_t error)
{
    constexpr auto texts = std::to_array<std::pair<std::int64_t, const char*>>({
        {2, "not found"},
        {5, "access denied"},
        {6, "invalid handle"},
        {22, "the device does not know the command"},
        {31, "the device does not work"},
        {109, "the other end closed its pipe"},
        {121, "timeout"},
        {232, "the pipe is being closed"},
        {233, "no process is at the other end"},
        {433, "no such device"},
        {995, "the operation was aborted"},
        {1167, "the device is not connected"},
    });
    const auto found = std::ranges::find(texts, error, &std::pair<std::int64_t, const char*>::first);
    return found != texts.end() ? found->second : std::string();
}

std::string SentenceOf(const Incident& incident)
{
    for (const auto sentence : {RouterSentence, ConnectionSentence, FirmwareSentence, PortSentence}) {
        std::string text = sentence(incident);
        if (!text.empty()) {
            return text;
        }
    }
    return std::string(KeyOf(incident.kind)) + ".";
}

} // namespace routerlog
