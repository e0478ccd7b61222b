// Round trips: sends numbered requests one at a time and looks for each one's echo.
#pragma once

#include "PortJob.h"

#include "tools/RouterProbe/RoundTrips.h"

#include <set>

class MeasureJob : public PortJob
{
public:
    MeasureJob(const ProbeOptions& options, const ProbePort& port, const console::StopSignal& stop);

    std::optional<ProbeFault> Fault() const override;
    std::string Summary() const override;
    const RoundTrips& Times() const noexcept { return m_times; }

protected:
    End DoRun(const morvane::Port& pipe) override;

private:
    std::string RequestName() const { return "request " + std::to_string(m_number); }
    std::optional<End> Round(const morvane::Port& pipe);
    void OnReply(std::chrono::microseconds time);
    std::optional<End> OnLate();
    /// What has come beside the replies.
    void JudgeOthers(const morvane::Port& pipe);
    void Judge(morvane::View message);

    RoundTrips m_times;
    ProbeOptions::Bytes m_request;
    std::uint64_t m_number = 0;      // of the pending request
    std::set<std::uint64_t> m_open;  // numbers whose reply did not come in time or before the pipe broke
    std::uint64_t m_lost = 0;        // not in time
    std::uint64_t m_interrupted = 0; // by the end of the pipe
    std::uint64_t m_late = 0;        // came after all
    std::uint64_t m_duplicate = 0;
    std::uint64_t m_wrong = 0;
    std::uint64_t m_unsolicited = 0;
};
