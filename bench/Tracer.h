// The product's trace front end and tracer, writing into a log of their own.
#pragma once

#include "diag/CDebugThread.h"
#include "host/TraceFrontEnd.h"
#include "tests/support/TempFolder.h"

namespace bench {

/// The trace calls of this process go here while it lives; one at a time. Everything that channel -1 traces is
/// wanted by the file, nothing of other channels.
class Tracer
{
public:
    Tracer();

    /// A channel that nobody has asked to trace.
    static constexpr std::int32_t UnwantedChannel = 7;

    /// Lines in the log that contain `text`.
    std::size_t LinesWith(const std::string& text) const;

private:
    /// As the module's own, without its dialog.
    struct Output final : ITraceOutput
    {
        explicit Output(CDebugThread& thread) : tracer(thread) {}
        bool TracerExists() const noexcept override { return true; }
        bool DialogExists() const noexcept override { return true; }
        bool DialogIsVisible() const noexcept override { return false; }
        void AddTrace(std::uint32_t mask, std::string text) override { tracer.AddTrace(mask, std::move(text)); }
        CDebugThread& tracer;
    };

    support::TempFolder m_folder;
    CDebugThread::Owner m_tracer;
    Output m_output;
    TraceFrontEnd m_frontEnd;
};

} // namespace bench
