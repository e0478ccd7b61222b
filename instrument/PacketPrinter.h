// What a simulated instrument prints while it runs, and at its end.
#pragma once

#include "instrument/InstrumentEngine.h"

#include <chrono>
#include <string>

/// Prints a line for each thing that happens. Used by the one thread that plays it; lines are gathered and printed by
/// Flush, once a pass.
class PacketPrinter : public instrument::Observer
{
public:
    PacketPrinter();

    void OnPacket(const wire::Frame& frame, bool numberGap, bool wrongChecksum) override;
    void OnGarbage(std::size_t bytes) override;
    void OnFirmware(const instrument::FirmwareReport& report) override;

    /// Any other event.
    void Line(const std::string& text);
    void Flush();

private:
    std::chrono::microseconds m_start;
    std::chrono::microseconds m_lastProgress{};
    instrument::FirmwareReport::State m_firmwareState = instrument::FirmwareReport::State::None;
    std::string m_lines;
};

/// The counters as a few lines for people.
std::string SummaryOf(const instrument::InstrumentEngine& engine, std::chrono::microseconds running);

/// How far a download is or has come, in one line.
std::string FirmwareLine(const instrument::FirmwareReport& report);
