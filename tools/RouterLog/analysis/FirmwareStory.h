// Firmware downloads as the log tells them. Portable.
#pragma once

#include "tools/RouterLog/analysis/Incident.h"

namespace routerlog {

/// One thread. Takes every line in turn.
class FirmwareStory
{
public:
    explicit FirmwareStory(IncidentLog& incidents) : m_incidents(incidents) {}

    void Take(const LogLine& line);
    /// The connection is gone or the router ended.
    void Interrupt(const Where& where);
    /// After the last line.
    void Finish();

    bool IsDownloading() const noexcept { return m_active; }
    /// The instrument was asked as often as it is ever asked and has not answered.
    bool IsUnanswered() const noexcept { return m_active && m_retries >= MostRetries && !m_answered; }
    const Where& Since() const noexcept { return m_begin; }
    std::int64_t ChunksAcknowledged() const noexcept { return m_acknowledged; }
    std::int64_t Chunks() const noexcept { return m_chunks; }

private:
    static constexpr int MostRetries = 3;

    void Begin(const Where& where);
    void Complete(const Where& where);
    void AddUnanswered();
    bool WasDownloaded(const Where& completed) const noexcept;

    IncidentLog& m_incidents;
    Where m_begin;
    std::int64_t m_bytes = 0;
    std::int64_t m_chunks = 0;
    std::int64_t m_acknowledged = 0;
    Reason m_answer = Reason::UnknownAnswer; // the last one that was not DOWNLOAD_OK
    int m_retries = 0;
    LogTime m_acknowledgedAt = 0;
    bool m_acknowledgedLast = false;
    bool m_repliesTraced =
        false; // the transport traces each answer, also those that no line of the dialogue names
    bool m_answered = false;
    bool m_active = false;
};

} // namespace routerlog
