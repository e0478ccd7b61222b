// Times of round trips. Portable.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

/// Used by one thread at a time.
class RoundTrips
{
public:
    using Time = std::chrono::microseconds;

    void Reserve(std::size_t count) { m_times.reserve(count); }
    void Add(Time time) { m_times.push_back(static_cast<std::uint32_t>(time.count())); }
    void Add(const RoundTrips& others);
    std::size_t Count() const noexcept { return m_times.size(); }

    struct Summary
    {
        Time least{};
        Time median{};
        Time percentile99{};
        Time most{};
    };

    /// All zero when there was none.
    Summary Summarize() const;

private:
    std::vector<std::uint32_t> m_times; // microseconds
};
