// Sends requests and prints the replies.
#pragma once

#include "PortJob.h"

class SendJob : public PortJob
{
public:
    using PortJob::PortJob;

    std::optional<ProbeFault> Fault() const override;

protected:
    End DoRun(ClientPipe& pipe) override;

private:
    /// Done, or how the job ends.
    std::optional<End> SendOne(ClientPipe& pipe, const Bytes& request);

    std::size_t m_next = 0; // of all requests, each counted as often as it is sent
    std::uint64_t m_wrong = 0;
    std::uint64_t m_unanswered = 0;
};
