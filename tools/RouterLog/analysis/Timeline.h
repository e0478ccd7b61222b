// The course of things over the log's time, in bounded memory: what the pictures of the report are drawn from.
// Portable.
#pragma once

#include "tools/RouterLog/analysis/LogLine.h"

#include <cstdint>
#include <map>
#include <vector>

namespace routerlog {

enum class RouterState : std::uint8_t { Unknown, NotRunning, Searching, Downloading, Connected };

/// The state of router and connection, from change to change.
class StateTimeline
{
public:
    struct Span
    {
        LogTime from, to;
        RouterState state;
    };

    /// The state changed at `now`, or is the same still.
    void Set(RouterState state, LogTime now);
    RouterState Current() const noexcept { return m_state; }
    /// All spans up to `now`; shorter ones have gone into their neighbours when there were too many.
    std::vector<Span> Spans(LogTime now) const;

private:
    static constexpr std::size_t MostSpans = 4'000;
    void Shorten();

    std::vector<Span> m_spans;
    RouterState m_state = RouterState::Unknown;
    LogTime m_since = 0;
    bool m_begun = false;
};

/// Sums over equal stretches of time. When the log outgrows them, two become one.
class TrafficTimeline
{
public:
    struct Cell
    {
        std::uint64_t requests = 0, requestBytes = 0, replies = 0, replyBytes = 0;
        std::uint64_t answers = 0;                      // replies whose request is known
        std::int64_t answerTime = 0, longestAnswer = 0; // ms
    };
    using Row = std::vector<Cell>;
    static constexpr std::size_t MostCells = 480;

    /// The cell of a port at a time; earlier times than the first count as that. Valid until the next call.
    Cell& At(const PortAddress& port, LogTime time);

    LogTime Origin() const noexcept { return m_origin; }
    std::int64_t CellTime() const noexcept { return m_cellTime; } // ms
    const std::map<PortAddress, Row>& Rows() const noexcept { return m_rows; }

private:
    void Coarsen();

    std::map<PortAddress, Row> m_rows; // as many as there are ports, whose number is bounded by their owner
    LogTime m_origin = 0;
    std::int64_t m_cellTime = 1000;
    bool m_begun = false;
};

} // namespace routerlog
