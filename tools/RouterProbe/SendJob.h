// Sends requests and prints the replies.
#pragma once

#include "PortJob.h"

class SendJob : public PortJob
{
public:
    using PortJob::PortJob;

    std::optional<ProbeFault> Fault() const override;

protected:
    End DoRun(const morvane::Port& pipe) override;

private:
    /// None, or how the job ends.
    std::optional<End> SendOne(const morvane::Port& pipe, morvane::View request);
    std::optional<End> Request(const morvane::Port& pipe, morvane::View request);
    void JudgeReply(morvane::View request, std::chrono::microseconds time);
    std::string RequestName() const { return "request " + std::to_string(m_next + 1); }

    std::size_t m_next = 0; // of all requests, each counted as often as it is sent
    std::uint64_t m_wrong = 0;
    std::uint64_t m_unanswered = 0;
};
