// Times in bounded memory, with their quantiles. Portable.
#pragma once

#include <array>
#include <cstdint>

namespace routerlog {

/// Exact to the millisecond below 2,048 ms, to 1.6 % above. One thread.
class Histogram
{
public:
    void Add(std::int64_t milliseconds) noexcept;

    std::uint64_t Count() const noexcept { return m_count; }
    std::int64_t Longest() const noexcept { return m_longest; }
    /// The least time that at least `share` (0 to 1) of all times do not exceed; 0 without any.
    std::int64_t Quantile(double share) const noexcept;

private:
    static constexpr std::size_t Exact = 2048;
    static constexpr std::size_t StepsPerDoubling = 64;
    static constexpr std::size_t Doublings = 32;

    static std::size_t BucketOf(std::uint64_t milliseconds) noexcept;
    static std::int64_t LargestOf(std::size_t bucket) noexcept;

    std::array<std::uint64_t, Exact + StepsPerDoubling * Doublings> m_buckets{};
    std::uint64_t m_count = 0;
    std::int64_t m_longest = 0;
};

} // namespace routerlog
