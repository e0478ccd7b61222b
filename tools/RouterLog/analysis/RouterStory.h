// The router's own life as its log tells it: starts, ends, tracing on and off, lines lost. Portable.
#pragma once

#include "tools/RouterLog/analysis/Incident.h"

#include <optional>

namespace routerlog {

/// One thread. Takes every line in turn.
class RouterStory
{
public:
    enum class State : std::uint8_t { Unknown, Running, TracingOff, Ended, Vanished };

    explicit RouterStory(IncidentLog& incidents) : m_incidents(incidents) {}

    /// Before the first line of each file.
    void BeginFile() noexcept { m_atFileStart = true; }
    void Take(const LogLine& line);
    /// After the last line.
    void Finish();

    State Now() const noexcept { return m_state; }
    const Where& Since() const noexcept { return m_since; }
    Reason WhyEnded() const noexcept { return m_reason; }
    /// A new process began with the last line taken.
    bool HasJustStarted() const noexcept { return m_justStarted; }
    /// The process's end was noticed with the last line taken.
    bool HasJustEnded() const noexcept { return m_justEnded; }
    /// Programs that hold an automation object; not known without Dispatch lines from the start on.
    std::optional<std::int64_t> Programs() const noexcept { return m_programs; }

private:
    void TakeBegin(const LogLine& line);
    void TakeEnd(const LogLine& line);
    void TakeContinuation(const LogLine& line);
    void TakeProgram(const LogLine& line);
    void TakeLoss(const LogLine& line);
    void SettleBegin(const LogLine* line);
    void BecomeRunning(const Where& where);
    void Add(IncidentKind kind, const Where& where, TraceClass traceClass = TraceClass::Always,
             std::int64_t count = 0);

    IncidentLog& m_incidents;
    State m_state = State::Unknown;
    State m_stateBeforeBegin = State::Unknown;
    Where m_since;
    Where m_last;                  // the line taken last
    std::optional<Where> m_begin;  // a begin banner whose meaning the next lines tell
    std::optional<Where> m_ending; // the terminating banner
    std::optional<std::int64_t> m_programs;
    std::optional<Where> m_lastProgram; // the last program that went, with none that came since
    Reason m_reason = Reason::Unknown;
    bool m_beginIsStart = false; // a line after the begin banner says that the process is new
    bool m_hostGone = false;
    bool m_atFileStart = true;
    bool m_toBeContinued = false; // the last line of the file before announced another file
    bool m_anyFileBefore = false;
    bool m_justStarted = false;
    bool m_justEnded = false;
};

} // namespace routerlog
