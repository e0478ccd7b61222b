// What a port tells its client about the connection.
#pragma once

#include "client/Errors.h"

#include <cstdint>
#include <deque>
#include <optional>

namespace clientlib {

/// Without a lock of its own.
class PortEvents
{
public:
    bool IsEmpty() const noexcept { return m_events.empty(); }
    /// The oldest one; there must be one.
    morvane_event Take();
    /// Whether the client was told why there is no connection.
    bool HasReason() const noexcept { return m_reason != MORVANE_OK; }

    void Connected();
    /// The pipe broke. It is reported once it is known whose end that was.
    void Lost(DWORD error, std::uint32_t unanswered, std::uint32_t unsent);
    /// A message was written to the pipe that Lost has told of. It must not have been reported.
    void AlsoUnanswered() noexcept;
    /// The error of the last Lost.
    DWORD LostBy() const noexcept { return m_lostBy; }
    void InstrumentGone() { ReportLoss(Gone::Instrument); }
    void RouterGone();
    /// The next connection is the client's wish.
    void Reopening() noexcept { m_gone = Gone::Reopened; }
    /// Once until the next connection.
    void RouterEnding(Result why);
    /// Once for each reason.
    void NotYet(Result why);
    void Dropped(std::size_t count);

private:
    enum class Gone { Never, Instrument, Router, Reopened };

    morvane_event& Report(std::int32_t kind, Result why = {});
    void ReportLoss(Gone gone);

    std::deque<morvane_event> m_events;
    std::optional<morvane_event> m_loss; // not reported yet
    DWORD m_lostBy = ERROR_SUCCESS;
    Gone m_gone = Gone::Never; // what the next connection brings back
    int m_reason = MORVANE_OK; // the last one reported
    bool m_endingReported = false;
};

} // namespace clientlib
