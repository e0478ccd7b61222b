#include "tools/RouterLog/analysis/Timeline.h"

#include <algorithm>
#include <utility>

namespace routerlog {

void StateTimeline::Set(RouterState state, LogTime now)
{
    if (m_begun && state == m_state) {
        return;
    }
    // A clock that was set back leaves no span of its own.
    if (m_begun && now > m_since) {
        m_spans.push_back({m_since, now, m_state});
        if (m_spans.size() >= MostSpans) {
            Shorten();
        }
    }
    m_state = state;
    m_since = now;
    m_begun = true;
}

std::vector<StateTimeline::Span> StateTimeline::Spans(LogTime now) const
{
    std::vector<Span> spans(m_spans);
    if (m_begun && now >= m_since) {
        spans.push_back({m_since, now, m_state});
    }
    return spans;
}

// The shorter half goes into the spans before them.
void StateTimeline::Shorten()
{
    std::vector<std::int64_t> lengths;
    lengths.reserve(m_spans.size());
    for (const Span& span : m_spans) {
        lengths.push_back(span.to - span.from);
    }
    const auto middle = lengths.begin() + static_cast<std::ptrdiff_t>(lengths.size() / 2);
    std::ranges::nth_element(lengths, middle);
    const std::int64_t least = *middle;
    std::vector<Span> kept;
    std::size_t mayGo = m_spans.size() / 2;
    for (const Span& span : m_spans) {
        if (!kept.empty() && span.to - span.from <= least && mayGo > 0) {
            kept.back().to = span.to;
            --mayGo;
        } else {
            kept.push_back(span);
        }
    }
    m_spans = std::move(kept);
}

TrafficTimeline::Cell& TrafficTimeline::At(const PortAddress& port, LogTime time)
{
    if (!std::exchange(m_begun, true)) {
        m_origin = time;
    }
    const std::int64_t since = std::max<std::int64_t>(time - m_origin, 0);
    while (since / m_cellTime >= static_cast<std::int64_t>(MostCells)) {
        Coarsen();
    }
    const auto index = static_cast<std::size_t>(since / m_cellTime);
    Row& row = m_rows[port];
    if (row.size() <= index) {
        row.resize(index + 1);
    }
    return row[index];
}

void TrafficTimeline::Coarsen()
{
    m_cellTime *= 2;
    for (auto& [port, row] : m_rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            const Cell cell = std::exchange(row[i], Cell{});
            Cell& to = row[i / 2];
            to.requests += cell.requests;
            to.requestBytes += cell.requestBytes;
            to.replies += cell.replies;
            to.replyBytes += cell.replyBytes;
            to.answers += cell.answers;
            to.answerTime += cell.answerTime;
            to.longestAnswer = std::max(to.longestAnswer, cell.longestAnswer);
        }
        row.resize((row.size() + 1) / 2);
    }
}

} // namespace routerlog
