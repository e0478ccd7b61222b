#include "tools/RouterProbe/RoundTrips.h"

#include <algorithm>

void RoundTrips::Add(const RoundTrips& others)
{
    m_times.insert(m_times.end(), others.m_times.begin(), others.m_times.end());
}

RoundTrips::Summary RoundTrips::Summarize() const
{
    if (m_times.empty()) {
        return {};
    }
    std::vector<std::uint32_t> sorted = m_times;
    std::sort(sorted.begin(), sorted.end());
    // The smallest time that at least so many percent of all times do not exceed.
    const auto at = [&sorted](std::size_t percent) {
        return Time(sorted[(sorted.size() * percent + 99) / 100 - 1]);
    };
    return {Time(sorted.front()), at(50), at(99), Time(sorted.back())};
}
