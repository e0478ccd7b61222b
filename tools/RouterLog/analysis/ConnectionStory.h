// The connection to the instrument as the log tells it: found, lost, found again, slow, gaps in the numbering.
// Portable.
#pragma once

#include "tools/RouterLog/analysis/Incident.h"

#include <map>
#include <optional>

namespace routerlog {

/// One thread. Takes every line in turn.
class ConnectionStory
{
public:
    enum class State : std::uint8_t { Unknown, Searching, Connected };

    explicit ConnectionStory(IncidentLog& incidents) : m_incidents(incidents) {}

    void Take(const LogLine& line);
    /// A process began or ended: nothing is known of its connection.
    void Reset();
    /// After the last line.
    void Finish();

    State Now() const noexcept { return m_state; }
    const Where& Since() const noexcept { return m_since; }
    bool IsSimulated() const noexcept { return m_simulated; }
    std::int64_t Attempts() const noexcept { return m_attempts; }
    /// The connection was lost with the last line taken.
    bool HasJustBeenLost() const noexcept { return m_justLost; }

private:
    struct Failure
    {
        Where where;
        std::int64_t error = 0; // of Windows; 0: not told
        bool reading = false;
    };

    void TakeState(const LogLine& line);
    void TakeNotified(const LogLine& line);
    void TakeTraffic(const LogLine& line);
    void TakeFailure(const LogLine& line);
    void TakeGap(const LogLine& line);
    void Connected(const Where& where);
    void Lost(const Where& where);
    void BeginSearch(const Where& where);
    void CloseBursts(LogTime now, std::int64_t within);
    void CloseUnknownDestination(const PortAddress& port, Burst& burst);

    IncidentLog& m_incidents;
    State m_state = State::Unknown;
    Where m_since;
    std::optional<Where> m_lostAt;
    std::optional<Where> m_searchSince; // the start of a process
    std::optional<Failure> m_failure;   // told, and not yet followed by the end of the connection
    std::int64_t m_attempts = 0;
    std::int64_t m_product = 0; // of the vendor's device seen last
    Burst m_aborted;
    Burst m_simulatorSlow;
    Burst m_requestsDropped;
    TraceClass m_requestsDroppedClass = TraceClass::Usb;
    std::map<PortAddress, Burst> m_unknownDestinations; // open bursts
    bool m_simulated = false;
    bool m_justLost = false;
};

} // namespace routerlog
