#include "tools/RouterLog/analysis/Incident.h"

#include <algorithm>
#include <utility>

namespace routerlog {

namespace {

struct KindText
{
    std::string_view key;
    bool fault;
};

constexpr std::array<KindText, IncidentKindCount> Kinds{{
    {"log-begins", false},          {"router-started", false},
    {"tracing-on", false},          {"tracing-off", false},
    {"router-ended", false},        {"router-vanished", true},
    {"lines-not-written", true},    {"log-overflow", true},
    {"lines-missing", true},        {"clock-set-back", true},
    {"nothing-traced", true},       {"program-came", false},
    {"program-went", false},        {"instrument-connected", false},
    {"instrument-lost", true},      {"instrument-reconnected", false},
    {"reading-stopped", true},      {"host-gone", true},
    {"firmware-downloaded", false}, {"firmware-refused", true},
    {"firmware-failed", true},      {"firmware-interrupted", true},
    {"firmware-unanswered", true},  {"number-gap", true},
    {"writes-aborted", true},       {"simulator-slow", true},
    {"requests-dropped", true},     {"replies-dropped", true},
    {"unknown-destination", true},  {"reply-error", true},
    {"router-failure", true},       {"port-opened", false},
    {"port-closed", false},         {"client-came", false},
    {"client-went", false},         {"client-cut-off", true},
    {"client-stalled", true},
}};

} // namespace

std::string_view KeyOf(IncidentKind kind) noexcept
{
    return Kinds[static_cast<std::size_t>(kind)].key;
}

bool IsFault(IncidentKind kind) noexcept
{
    return Kinds[static_cast<std::size_t>(kind)].fault;
}

void IncidentLog::Add(Incident incident)
{
    ++m_counts[static_cast<std::size_t>(incident.kind)];
    constexpr std::size_t LongestName = 260;
    if (incident.name.size() > LongestName) {
        incident.name.resize(LongestName);
    }
    if (m_first.size() < KeptAtEachEnd) {
        m_first.push_back(std::move(incident));
        return;
    }
    m_last.push_back(std::move(incident));
    if (m_last.size() > KeptAtEachEnd) {
        m_last.pop_front();
        ++m_leftOut;
    }
}

std::vector<Incident> IncidentLog::InOrder() const
{
    std::vector<Incident> all(m_first);
    all.insert(all.end(), m_last.begin(), m_last.end());
    std::ranges::stable_sort(all, {}, [](const Incident& each) { return each.where.sequence; });
    return all;
}

std::vector<Incident> IncidentLog::Last(std::size_t count) const
{
    std::vector<Incident> last;
    const std::size_t fromLast = std::min(count, m_last.size());
    const std::size_t fromFirst = std::min(count - fromLast, m_first.size());
    last.insert(last.end(), m_first.end() - static_cast<std::ptrdiff_t>(fromFirst), m_first.end());
    last.insert(last.end(), m_last.end() - static_cast<std::ptrdiff_t>(fromLast), m_last.end());
    return last;
}

void Burst::Join(const Where& where, std::int64_t value)
{
    if (m_count++ == 0) {
        m_first = where;
        m_most = value;
    }
    m_last = where.time;
    m_most = std::max(m_most, value);
}

} // namespace routerlog
