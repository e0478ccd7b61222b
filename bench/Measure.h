// Times taken side by side, and what is made of them. Portable.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <vector>

namespace bench {

/// How much is done: the whole measurement, or just enough to see that it works.
struct RunSize
{
    bool quick = false;

    int Rounds() const noexcept { return quick ? 2 : 7; }
    /// `whole` times, or a small part of it.
    std::size_t Times(std::size_t whole) const noexcept
    {
        return quick ? std::max<std::size_t>(whole / 20, 2) : whole;
    }
    std::chrono::milliseconds Time(std::chrono::milliseconds whole) const noexcept
    {
        return quick ? whole / 8 : whole;
    }
};

/// Throws std::runtime_error with `what` unless `holds`.
inline void Demand(bool holds, const char* what)
{
    if (!holds) {
        throw std::runtime_error(what);
    }
}

class Stopwatch
{
public:
    double Nanoseconds() const
    {
        return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - m_start).count();
    }
    double Seconds() const { return Nanoseconds() / 1e9; }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

/// The smallest value that at least `percent` of all values do not exceed; 0 when there is none.
inline double Percentile(std::vector<double> values, std::size_t percent)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[(values.size() * percent + 99) / 100 - 1];
}

inline double Median(std::vector<double> values)
{
    return Percentile(std::move(values), 50);
}

/// Calls each function (which returns a figure) once a round, in turn, so that whatever else the machine does
/// meets them alike; the median figure of each.
template <class... Functions>
std::array<double, sizeof...(Functions)> InTurn(int rounds, Functions&&... functions)
{
    std::array<std::vector<double>, sizeof...(Functions)> figures;
    for (int round = 0; round < rounds; ++round) {
        std::size_t at = 0;
        (figures[at++].push_back(functions()), ...);
    }
    std::array<double, sizeof...(Functions)> medians{};
    std::transform(figures.begin(), figures.end(), medians.begin(),
                   [](auto& all) { return Median(std::move(all)); });
    return medians;
}

/// Nanoseconds for one of `count` calls.
template <class Function>
double NanosecondsEach(std::size_t count, Function&& function)
{
    const Stopwatch watch;
    for (std::size_t i = 0; i < count; ++i) {
        function(i);
    }
    return watch.Nanoseconds() / static_cast<double>(count);
}

/// Round trips are started with so many that don't count, so that nothing of a just opened path is measured.
inline constexpr int WarmUps = 5;

/// Microseconds of each of `count` trips.
template <class Trip>
std::vector<double> Microseconds(std::size_t count, Trip&& trip)
{
    NanosecondsEach(WarmUps, [&](std::size_t) { trip(); });
    std::vector<double> times(count);
    for (double& time : times) {
        const Stopwatch watch;
        trip();
        time = watch.Nanoseconds() / 1000;
    }
    return times;
}

/// Keeps the compiler from leaving out the computation of what `value` points to.
inline void Keep(const void* value)
{
    asm volatile("" : : "g"(value) : "memory");
}

} // namespace bench
