// Prints what comes, or counts it.
#pragma once

#include "PortJob.h"

/// With --check the messages are the numbered ones that a simulated instrument floods the port with.
class ListenJob : public PortJob
{
public:
    using PortJob::PortJob;

    std::optional<ProbeFault> Fault() const override;
    std::string Summary() const override;

protected:
    End DoRun(const morvane::Port& pipe) override;

private:
    void Check(morvane::View message);

    std::uint64_t m_expected = 0;
    bool m_first = true; // of an opening: the numbers before it are not missed
    std::uint64_t m_lost = 0;
    std::uint64_t m_unordered = 0; // numbers that came before, or twice
    std::uint64_t m_foreign = 0;   // without a number, or changed
};
