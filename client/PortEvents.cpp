#include "client/PortEvents.h"

#include <array>
#include <utility>

namespace clientlib {

namespace {

constexpr std::size_t MostEvents = 256;

} // namespace

morvane_event PortEvents::Take()
{
    const morvane_event event = m_events.front();
    m_events.pop_front();
    return event;
}

void PortEvents::Connected()
{
    static constexpr std::array<std::int32_t, 4> Events = {MORVANE_EVENT_CONNECTED, MORVANE_EVENT_INSTRUMENT_BACK,
                                                           MORVANE_EVENT_ROUTER_BACK, MORVANE_EVENT_REOPENED};
    Report(Events[static_cast<std::size_t>(m_gone)]);
    m_gone = Gone::Instrument;
    m_reason = MORVANE_OK;
    m_endingReported = false;
}

void PortEvents::Lost(DWORD error, std::uint32_t unanswered, std::uint32_t unsent)
{
    m_lostBy = error;
    m_loss.emplace();
    m_loss->windows_error = error;
    m_loss->unanswered = unanswered;
    m_loss->unsent = unsent;
}

void PortEvents::AlsoUnanswered() noexcept
{
    if (m_loss) {
        ++m_loss->unanswered;
    }
}

void PortEvents::RouterGone()
{
    if (!m_loss && m_gone != Gone::Router) {
        m_loss.emplace();
    }
    ReportLoss(Gone::Router);
}

void PortEvents::ReportLoss(Gone gone)
{
    if (!m_loss) {
        return;
    }
    m_gone = gone;
    m_reason = gone == Gone::Router ? MORVANE_E_ROUTER_GONE : MORVANE_E_NO_PIPE;
    morvane_event& event =
        Report(gone == Gone::Router ? MORVANE_EVENT_ROUTER_GONE : MORVANE_EVENT_INSTRUMENT_GONE);
    event.windows_error = m_loss->windows_error;
    event.unanswered = m_loss->unanswered;
    event.unsent = m_loss->unsent;
    m_loss.reset();
}

void PortEvents::RouterEnding(Result why)
{
    if (!std::exchange(m_endingReported, true)) {
        Report(MORVANE_EVENT_ROUTER_ENDING, why);
    }
}

void PortEvents::NotYet(Result why)
{
    if (std::exchange(m_reason, why.code) != why.code) {
        Report(MORVANE_EVENT_NOT_YET, why);
    }
}

void PortEvents::Dropped(std::size_t count)
{
    if (m_events.empty() || m_events.back().kind != MORVANE_EVENT_DROPPED) {
        Report(MORVANE_EVENT_DROPPED);
    }
    m_events.back().count += static_cast<std::uint32_t>(count);
}

morvane_event& PortEvents::Report(std::int32_t kind, Result why)
{
    if (m_events.size() >= MostEvents) {
        m_events.pop_front();
    }
    morvane_event event{};
    event.kind = kind;
    event.error = why.code;
    event.windows_error = why.windowsError;
    return m_events.emplace_back(event);
}

} // namespace clientlib
