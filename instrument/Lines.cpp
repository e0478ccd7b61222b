#include "instrument/Lines.h"

#include "console/HexDump.h"

#include <sstream>

namespace instrument {

std::string LineOf(const wire::Frame& frame)
{
    return Format("no %3d type %3d [%02d,%02d] %5zu bytes ", frame.packetNumber, frame.packetType,
                  frame.deviceType, frame.port, frame.payload.size()) +
           hexdump::Short(frame.payload);
}

std::string LineOf(const FirmwareReport& report)
{
    using State = FirmwareReport::State;
    using Match = FirmwareReport::Match;
    static constexpr std::array<const char*, 5> states = {"none", "prepared", "receiving", "done", "ended"};
    std::ostringstream line;
    line << "firmware " << states[static_cast<std::size_t>(report.state)] << ": " << report.received << " of "
         << report.announced << " bytes in " << report.chunks << " chunks";
    if (report.announced != 0) {
        line << Format(", %.1f %%",
                       100.0 * static_cast<double>(report.received) / static_cast<double>(report.announced));
    }
    if (report.chunks > 1) {
        line << Format(", %.3f MB/s", report.BytesPerSecond() / 1e6);
    }
    if (report.state == State::Done) {
        line << (report.match == Match::Same ? ", the same as expected"
                 : report.match == Match::Different
                     ? ", different from offset " + std::to_string(report.firstDifference)
                     : ", not compared");
    }
    if (report.tooLong != 0) {
        line << ", " << report.tooLong << " chunks too long";
    }
    return line.str();
}

std::string SummaryOf(const Engine& engine, Time running)
{
    const Counters& counted = engine.Counted();
    std::ostringstream text;
    text << "summary: " << Format("%.3f", std::chrono::duration<double>(running).count()) << " s, "
         << counted.connections << " connections, vanished " << counted.vanished << " times\n"
         << "  received: " << counted.requests << " requests, " << counted.controlPackets << " control packets, "
         << counted.firmwareMessages << " firmware messages, " << counted.otherPackets << " others, "
         << counted.bytesReceived << " bytes\n"
         << "  faults of the router: " << counted.numberGaps << " number gaps, " << counted.wrongChecksums
         << " wrong checksums, " << counted.garbageReceived << " bytes outside packets\n"
         << "  sent: " << counted.answers << " answers, " << counted.unsolicited << " unsolicited, "
         << counted.bytesSent << " bytes\n";
    if (engine.Firmware().prepares != 0) {
        text << "  " << LineOf(engine.Firmware()) << "; " << engine.Firmware().downloads
             << " downloads came whole\n";
    }
    return text.str();
}

} // namespace instrument
