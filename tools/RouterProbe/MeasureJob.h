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
    End DoRun(ClientPipe& pipe) override;

private:
    enum class Reply { Awaited, Other };

    std::optional<End> Round(ClientPipe& pipe);
    std::optional<End> AwaitReply(ClientPipe& pipe, std::chrono::microseconds start);
    std::optional<End> OnLate();
    Reply Judge(const Bytes& message);

    RoundTrips m_times;
    Bytes m_request;
    Bytes m_reply;
    std::uint64_t m_number = 0;      // of the request under way
    std::set<std::uint64_t> m_open;  // numbers whose reply did not come in time or before the pipe broke
    std::uint64_t m_lost = 0;        // not in time
    std::uint64_t m_interrupted = 0; // by the end of the pipe
    std::uint64_t m_late = 0;        // came after all
    std::uint64_t m_duplicate = 0;
    std::uint64_t m_wrong = 0;
    std::uint64_t m_unsolicited = 0;
};
