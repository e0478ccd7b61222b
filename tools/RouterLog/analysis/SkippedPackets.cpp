#include "tools/RouterLog/analysis/SkippedPackets.h"

#include <algorithm>
#include <utility>

namespace routerlog {

namespace {

constexpr std::int64_t Numbers = 256;
// The entry's time has no milliseconds and is taken after the line's.
constexpr std::int64_t Tolerance = 3'000; // ms

bool IsNumber(std::int64_t number) noexcept
{
    return number >= 0 && number < Numbers;
}

} // namespace

void SkippedPackets::Take(const LogLine& line)
{
    if (line.Kind() == Form::NumberGap) {
        Remember(line);
    } else if (line.Kind() == Form::SkippedPacket) {
        TakeEntry(line);
    }
}

void SkippedPackets::Remember(const LogLine& line)
{
    const std::int64_t received = line.match.Number(0);
    const std::int64_t previous = line.match.Number(1) - 1;
    if (!IsNumber(received) || !IsNumber(previous)) {
        return;
    }
    m_traced.push_back(
        {line.where.time, static_cast<std::uint8_t>(previous), static_cast<std::uint8_t>(received)});
    if (m_traced.size() > MostTraced) {
        m_forgotten = true;
        m_traced.pop_front();
        m_rememberedFrom = m_traced.front().time;
    }
}

void SkippedPackets::TakeEntry(const LogLine& line)
{
    const std::int64_t previous = line.match.Number(1);
    const std::int64_t received = line.match.Number(2);
    if (!IsNumber(previous) || !IsNumber(received)) {
        return;
    }
    ++m_entries;
    const bool traced = WasTraced(line.where.time, previous, received);
    m_alsoTraced += traced ? 1 : 0;
    if (received == (previous + 1) % Numbers) {
        ++m_wraps;
        return;
    }
    if (traced) {
        return;
    }
    Incident gap{.kind = IncidentKind::NumberGap, .traceClass = TraceClass::Always, .where = line.where};
    gap.first = (previous + 1) % Numbers;
    gap.second = received;
    gap.count = (received - previous - 1 + 2 * Numbers) % Numbers;
    m_incidents.Add(std::move(gap));
}

bool SkippedPackets::WasTraced(LogTime time, std::int64_t previous, std::int64_t received)
{
    if (m_forgotten && time < m_rememberedFrom) {
        return true; // too long ago to be looked up; the trace log told of some 200,000 gaps since
    }
    // Both logs are in the same order, so the one that is looked for is near the front.
    const auto found = std::ranges::find_if(m_traced, [&](const Traced& each) {
        return each.previous == previous && each.received == received && each.time < time + Tolerance &&
               time < each.time + Tolerance;
    });
    if (found == m_traced.end()) {
        return false;
    }
    // What stands before it was written to no entry.
    m_traced.erase(m_traced.begin(), found + 1);
    return true;
}

} // namespace routerlog
