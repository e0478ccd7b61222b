#include "tests/system/LongRun.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace longrun {

std::size_t Size(const char* variable, std::size_t otherwise)
{
    const char* const wanted = std::getenv(variable);
    return wanted != nullptr ? static_cast<std::size_t>(std::atoll(wanted)) : otherwise;
}

std::int64_t Median(std::vector<std::int64_t> values)
{
    if (values.empty()) {
        return 0;
    }
    std::ranges::sort(values);
    return values[values.size() / 2];
}

void UsageSeries::Add(std::size_t done, const ProcessUsage& usage)
{
    m_samples.push_back({done, usage});
}

ProcessUsage UsageSeries::MedianBetween(std::size_t from, std::size_t to) const
{
    std::vector<std::int64_t> handles;
    std::vector<std::int64_t> bytes;
    std::vector<std::int64_t> threads;
    for (const Sample& sample : m_samples) {
        if (sample.done >= from && sample.done < to) {
            handles.push_back(sample.usage.handles);
            bytes.push_back(static_cast<std::int64_t>(sample.usage.privateBytes));
            threads.push_back(sample.usage.threads);
        }
    }
    return {static_cast<DWORD>(Median(std::move(handles))), static_cast<std::size_t>(Median(std::move(bytes))),
            static_cast<DWORD>(Median(std::move(threads)))};
}

void AnswerTimes::Add(std::size_t request, std::chrono::microseconds time)
{
    if (request < m_requests / 10) {
        m_first.push_back(time.count());
    } else if (request >= m_requests - m_requests / 10) {
        m_last.push_back(time.count());
    }
}

void Progress::Show(std::size_t done, const ProcessUsage& usage)
{
    const auto now = Clock::now();
    if (std::getenv("MORVANE_PROGRESS") == nullptr || now - m_shown < std::chrono::seconds(10) || done == 0) {
        return;
    }
    m_shown = now;
    const double passed = std::chrono::duration<double>(now - m_start).count();
    const double share = static_cast<double>(done) / static_cast<double>(m_all);
    std::printf("%5.1f %% of %zu %s after %.0f s, about %.0f s left; %lu handles, %zu KB\n", 100 * share, m_all,
                m_what.c_str(), passed, passed / share - passed, static_cast<unsigned long>(usage.handles),
                usage.privateBytes / 1024);
    std::fflush(stdout);
}

void PrintFigure(const std::string& what, const std::string& value)
{
    std::printf("= %s: %s\n", what.c_str(), value.c_str());
}

void PrintUsage(const std::string& run, const ProcessUsage& early, const ProcessUsage& late)
{
    const auto pair = [](auto first, auto second) {
        return std::to_string(first) + " in the second quarter, " + std::to_string(second) + " in the last";
    };
    PrintFigure(run + ", handles of the router", pair(early.handles, late.handles));
    PrintFigure(run + ", private KB of the router", pair(early.privateBytes / 1024, late.privateBytes / 1024));
}

} // namespace longrun
