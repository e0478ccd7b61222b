// What a program that plays a scripted instrument prints while it runs, and at its end.
#pragma once

#include "console/Console.h"
#include "instrument/Engine.h"

#include <string>

namespace instrument {

/// Prints a line for each thing that happens. Used by the thread that plays; lines are gathered and printed once a
/// pass.
class ConsoleObserver : public Observer
{
public:
    /// `serving`: said, and `ready` set, as soon as the router can find the instrument. `quiet`: sets, says
    /// nothing.
    ConsoleObserver(std::string serving, const console::ReadySignal& ready, bool quiet);

    void OnPacket(const wire::Frame& frame, bool numberGap, bool wrongChecksum) override;
    void OnGarbage(std::size_t bytes) override;
    void OnFirmware(const FirmwareReport& report) override;
    void OnServed() override;
    void OnEvent(const std::string& what) override;
    void OnPass() override;

private:
    const std::string m_serving;
    const console::ReadySignal& m_ready;
    const bool m_quiet;
    const Time m_start = console::Now();
    Time m_lastProgress{};
    FirmwareReport::State m_firmwareState = FirmwareReport::State::None;
    std::string m_lines;
};

/// The counters as a few lines for people.
std::string SummaryOf(const Engine& engine, Time running);

} // namespace instrument
