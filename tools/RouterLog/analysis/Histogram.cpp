#include "tools/RouterLog/analysis/Histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace routerlog {

void Histogram::Add(std::int64_t milliseconds) noexcept
{
    const std::int64_t time = std::max<std::int64_t>(milliseconds, 0);
    ++m_buckets[BucketOf(static_cast<std::uint64_t>(time))];
    ++m_count;
    m_longest = std::max(m_longest, time);
}

std::int64_t Histogram::Quantile(double share) const noexcept
{
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(m_count)));
    std::uint64_t seen = 0;
    for (std::size_t bucket = 0; bucket < m_buckets.size() && m_count > 0; ++bucket) {
        seen += m_buckets[bucket];
        if (seen >= std::max<std::uint64_t>(wanted, 1)) {
            return std::min(LargestOf(bucket), m_longest);
        }
    }
    return m_longest;
}

std::size_t Histogram::BucketOf(std::uint64_t milliseconds) noexcept
{
    if (milliseconds < Exact) {
        return static_cast<std::size_t>(milliseconds);
    }
    const auto doubling = static_cast<std::size_t>(std::bit_width(milliseconds / Exact) - 1);
    const std::uint64_t step = (milliseconds >> doubling) * StepsPerDoubling / Exact - StepsPerDoubling;
    return Exact + std::min(doubling, Doublings - 1) * StepsPerDoubling + static_cast<std::size_t>(step);
}

std::int64_t Histogram::LargestOf(std::size_t bucket) noexcept
{
    if (bucket < Exact) {
        return static_cast<std::int64_t>(bucket);
    }
    const std::size_t doubling = (bucket - Exact) / StepsPerDoubling;
    const std::size_t step = (bucket - Exact) % StepsPerDoubling;
    const std::uint64_t width = (Exact / StepsPerDoubling) << doubling;
    return static_cast<std::int64_t>((Exact << doubling) + (step + 1) * width - 1);
}

} // namespace routerlog
