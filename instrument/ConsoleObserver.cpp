#include "instrument/ConsoleObserver.h"

#include "console/HexDump.h"

#include <array>
#include <cstdio>
#include <sstream>
#include <utility>

namespace instrument {

namespace {

constexpr std::chrono::seconds ProgressPeriod{1};

template <class... Values>
std::string Format(const char* format, Values... values)
{
    std::array<char, 200> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

/// How far a download is or has come, in one line.
std::string FirmwareLine(const FirmwareReport& report)
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

} // namespace

ConsoleObserver::ConsoleObserver(std::string serving, const console::ReadySignal& ready, bool quiet)
    : m_serving(std::move(serving)), m_ready(ready), m_quiet(quiet)
{
}

void ConsoleObserver::OnEvent(const std::string& what)
{
    if (!m_quiet) {
        m_lines +=
            Format("%11.6f ", std::chrono::duration<double>(console::Now() - m_start).count()) + what + "\n";
    }
}

void ConsoleObserver::OnServed()
{
    OnEvent(m_serving);
    OnPass();
    m_ready.Set();
}

void ConsoleObserver::OnPass()
{
    if (!m_lines.empty()) {
        console::Say(m_lines);
        m_lines.clear();
    }
}

void ConsoleObserver::OnPacket(const wire::Frame& frame, bool numberGap, bool wrongChecksum)
{
    // A download would print thousands of lines; its progress tells more.
    if (m_quiet || (frame.packetType == wire::PortTraffic && frame.deviceType == 0 && frame.port == 0)) {
        return;
    }
    OnEvent(Format("no %3d type %3d [%02d,%02d] %5zu bytes ", frame.packetNumber, frame.packetType,
                   frame.deviceType, frame.port, frame.payload.size()) +
            hexdump::Short(frame.payload) + (numberGap ? " (number gap)" : "") +
            (wrongChecksum ? " (wrong checksum)" : ""));
}

void ConsoleObserver::OnGarbage(std::size_t bytes)
{
    OnEvent(Format("%zu bytes that belong to no packet", bytes));
}

void ConsoleObserver::OnFirmware(const FirmwareReport& report)
{
    const bool changed = report.state != m_firmwareState || report.state != FirmwareReport::State::Receiving;
    if (changed || console::Now() - m_lastProgress >= ProgressPeriod) {
        m_firmwareState = report.state;
        m_lastProgress = console::Now();
        OnEvent(FirmwareLine(report));
    }
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
        text << "  " << FirmwareLine(engine.Firmware()) << "; " << engine.Firmware().downloads
             << " downloads came whole\n";
    }
    return text.str();
}

} // namespace instrument
