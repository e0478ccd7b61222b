// What the long runs share: their size, what the router holds meanwhile, answer times, progress and figures.
#pragma once

#include "tests/support/ProcessUsage.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace longrun {

/// The number that the environment variable holds, or `otherwise`.
std::size_t Size(const char* variable, std::size_t otherwise);

/// What a process held at moments of a run, each with how far the run had come. One thread.
class UsageSeries
{
public:
    void Add(std::size_t done, const ProcessUsage& usage);
    /// Medians of what was added while at least `from` and less than `to` was done: single samples move by
    /// megabytes. All 0 when there is none.
    ProcessUsage MedianBetween(std::size_t from, std::size_t to) const;
    ProcessUsage Last() const { return m_samples.empty() ? ProcessUsage{} : m_samples.back().usage; }

private:
    struct Sample
    {
        std::size_t done = 0;
        ProcessUsage usage;
    };
    std::vector<Sample> m_samples;
};

/// Answer times of one client, of which the first and the last tenth are kept. One thread.
class AnswerTimes
{
public:
    explicit AnswerTimes(std::size_t requests) : m_requests(requests) {}
    void Add(std::size_t request, std::chrono::microseconds time);

    const std::vector<std::int64_t>& FirstTenth() const { return m_first; }
    const std::vector<std::int64_t>& LastTenth() const { return m_last; }

private:
    std::size_t m_requests;
    std::vector<std::int64_t> m_first; // microseconds
    std::vector<std::int64_t> m_last;
};

/// Of no values: 0.
std::int64_t Median(std::vector<std::int64_t> values);

/// Says now and then how far a run has come and what is left, when MORVANE_PROGRESS is set. One thread.
class Progress
{
public:
    Progress(std::string what, std::size_t all) : m_what(std::move(what)), m_all(all) {}
    void Show(std::size_t done, const ProcessUsage& usage);

private:
    using Clock = std::chrono::steady_clock;
    const std::string m_what;
    const std::size_t m_all;
    const Clock::time_point m_start = Clock::now();
    Clock::time_point m_shown = m_start;
};

/// One line of the result, which ./run-long repeats at its end.
void PrintFigure(const std::string& what, const std::string& value);
void PrintUsage(const std::string& run, const ProcessUsage& early, const ProcessUsage& late);

} // namespace longrun
