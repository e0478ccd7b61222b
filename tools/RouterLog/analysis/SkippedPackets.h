// The skipped-packet log: gaps that the trace log may report as well. Portable.
#pragma once

#include "tools/RouterLog/analysis/Incident.h"

#include <cstdint>
#include <deque>

namespace routerlog {

/// One thread. The trace logs come first, then the skipped-packet log.
class SkippedPackets
{
public:
    explicit SkippedPackets(IncidentLog& incidents) : m_incidents(incidents) {}

    void Take(const LogLine& line);

    std::uint64_t Entries() const noexcept { return m_entries; }
    std::uint64_t AlsoTraced() const noexcept { return m_alsoTraced; }
    std::uint64_t WrapsToZero() const noexcept { return m_wraps; }

private:
    struct Traced
    {
        LogTime time;
        std::uint8_t previous, received;
    };
    static constexpr std::size_t MostTraced = 200'000;

    void Remember(const LogLine& line);
    void TakeEntry(const LogLine& line);
    bool WasTraced(LogTime time, std::int64_t previous, std::int64_t received);

    IncidentLog& m_incidents;
    std::deque<Traced> m_traced; // gaps of the trace log that no entry was found for yet, the last ones
    bool m_forgotten = false;    // there were more
    LogTime m_rememberedFrom = 0;
    std::uint64_t m_entries = 0;
    std::uint64_t m_alsoTraced = 0;
    std::uint64_t m_wraps = 0;
};

} // namespace routerlog
