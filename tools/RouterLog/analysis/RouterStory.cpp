#include "tools/RouterLog/analysis/RouterStory.h"

#include <algorithm>
#include <utility>

namespace routerlog {

namespace {

// The last program's going ends the router at once.
constexpr std::int64_t QuickEnd = 5'000; // ms

} // namespace

void RouterStory::Take(const LogLine& line)
{
    m_justStarted = false;
    m_justEnded = false;
    if (m_atFileStart || line.Kind() == Form::Continued) {
        TakeContinuation(line);
    }
    if (m_begin && line.Kind() != Form::BeginLogging) {
        SettleBegin(&line);
    }
    switch (line.Kind()) {
    case Form::BeginLogging: TakeBegin(line); break;
    case Form::EndLogging: TakeEnd(line); break;
    case Form::TracerTerminating: m_ending = line.where; break;
    case Form::EntriesNotProcessed:
    case Form::BufferOverflow: TakeLoss(line); break;
    case Form::ObjectCreated:
    case Form::ObjectDestroyed: TakeProgram(line); break;
    case Form::HostGone:
        m_hostGone = true;
        Add(IncidentKind::HostGone, line.where, TraceClass::Usb);
        break;
    default:
        if (IsRouterFailure(line.Kind())) {
            m_incidents.Add(
                {.kind = IncidentKind::RouterFailure,
                 .traceClass = line.match.format->traceClass,
                 .where = line.where,
                 .name = std::string(line.match.format->meaning) + " (" + std::string(line.text) + ")"});
        }
        if (m_state == State::Unknown) {
            BecomeRunning(line.where); // the log begins in the middle
        }
        break;
    }
    m_toBeContinued = line.Kind() == Form::ToBeContinued;
    m_last = line.where;
}

void RouterStory::Finish()
{
    if (m_begin) {
        SettleBegin(nullptr);
    }
}

// A file that goes on from another one follows a file that said so, and the other way round.
void RouterStory::TakeContinuation(const LogLine& line)
{
    const bool continued = line.Kind() == Form::Continued;
    if (continued != m_toBeContinued && (continued || m_anyFileBefore)) {
        Add(IncidentKind::LinesMissing, line.where);
    }
    if (continued && m_state != State::Running && !m_begin) {
        BecomeRunning(line.where);
    }
    m_atFileStart = false;
    m_anyFileBefore = true;
}

void RouterStory::TakeBegin(const LogLine& line)
{
    if (m_begin) {
        SettleBegin(nullptr); // began twice in a row: the first one was cut short
    }
    if (m_state == State::Running) {
        Incident vanished{.kind = IncidentKind::RouterVanished, .where = m_last};
        vanished.duration = line.where.time - m_last.time;
        m_incidents.Add(std::move(vanished));
        m_state = State::Vanished;
        m_justEnded = true;
    }
    m_stateBeforeBegin = m_state;
    m_begin = line.where;
    m_beginIsStart = m_state == State::Ended || m_state == State::Vanished;
    if (m_beginIsStart) {
        m_justStarted = true;
    }
    BecomeRunning(line.where);
}

// With the thread's first line it is known that the router started and how it reaches the instrument; other lines
// only tell that there is nothing more to wait for.
void RouterStory::SettleBegin(const LogLine* line)
{
    const bool usb = line != nullptr && line->Kind() == Form::UsbThreadStarted;
    const bool simulated = line != nullptr && line->Kind() == Form::SimThreadStarted;
    const bool summary = line != nullptr && line->Kind() == Form::DebugOptions;
    if ((usb || simulated || summary) && !std::exchange(m_beginIsStart, true)) {
        m_justStarted = true;
        m_programs = 0;
    }
    if (summary || (line != nullptr && line->Kind() == Form::ObjectCreated)) {
        return; // the thread's line may still come
    }
    Incident begin{.kind = IncidentKind::LogBegins, .where = *m_begin};
    if (m_beginIsStart) {
        begin.kind = IncidentKind::RouterStarted;
        begin.traceClass = usb || simulated ? TraceClass::Usb : TraceClass::Always;
        begin.simulated = simulated;
    } else if (m_stateBeforeBegin == State::TracingOff) {
        begin.kind = IncidentKind::TracingTurnedOn;
    }
    m_incidents.Add(std::move(begin));
    m_begin.reset();
}

void RouterStory::TakeEnd(const LogLine& line)
{
    m_justEnded = m_ending.has_value();
    if (!m_ending) {
        Add(IncidentKind::TracingTurnedOff, line.where);
        m_state = State::TracingOff;
        m_since = line.where;
        return;
    }
    Incident ended{.kind = IncidentKind::RouterEnded, .where = *m_ending};
    if (m_hostGone) {
        ended.reason = Reason::NoHostProgram;
        ended.traceClass = TraceClass::Usb;
    } else if (m_lastProgram && (m_programs == 0 || m_ending->time - m_lastProgram->time < QuickEnd)) {
        ended.reason = Reason::LastProgramWent;
        ended.traceClass = TraceClass::Dispatch;
    }
    m_reason = ended.reason;
    m_incidents.Add(std::move(ended));
    m_state = State::Ended;
    m_since = line.where;
    m_ending.reset();
}

void RouterStory::TakeProgram(const LogLine& line)
{
    const bool came = line.Kind() == Form::ObjectCreated;
    // A log that begins in the middle does not tell how many there were before.
    if (m_programs) {
        m_programs = std::max<std::int64_t>(*m_programs + (came ? 1 : -1), 0);
    }
    m_lastProgram = came ? std::nullopt : std::optional(line.where);
    Add(came ? IncidentKind::ProgramCame : IncidentKind::ProgramWent, line.where, TraceClass::Dispatch,
        m_programs.value_or(-1));
}

void RouterStory::TakeLoss(const LogLine& line)
{
    const bool overflow = line.Kind() == Form::BufferOverflow;
    Add(overflow ? IncidentKind::LogOverflow : IncidentKind::LinesNotWritten, line.where, TraceClass::Always,
        line.match.Number(0));
}

void RouterStory::BecomeRunning(const Where& where)
{
    m_programs = m_beginIsStart ? std::optional<std::int64_t>(0) : std::nullopt;
    m_lastProgram.reset();
    m_state = State::Running;
    m_since = where;
    m_hostGone = false;
    m_ending.reset();
    m_reason = Reason::Unknown;
}

void RouterStory::Add(IncidentKind kind, const Where& where, TraceClass traceClass, std::int64_t count)
{
    Incident incident{.kind = kind, .traceClass = traceClass, .where = where};
    incident.count = count;
    m_incidents.Add(std::move(incident));
}

} // namespace routerlog
