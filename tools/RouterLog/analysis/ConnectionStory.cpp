#include "tools/RouterLog/analysis/ConnectionStory.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace routerlog {

namespace {

constexpr std::int64_t BurstPause = 2'000; // ms
constexpr std::int64_t VendorId = 0x1E4F;
constexpr std::size_t MostOpenDestinations = 32;
constexpr LogTime EndOfTime = std::numeric_limits<LogTime>::max();

} // namespace

void ConnectionStory::Take(const LogLine& line)
{
    m_justLost = false;
    CloseBursts(line.where.time, BurstPause);
    TakeState(line);
    TakeFailure(line);
    TakeTraffic(line);
}

void ConnectionStory::TakeState(const LogLine& line)
{
    switch (line.Kind()) {
    case Form::UsbThreadStarted:
    case Form::SimThreadStarted:
        m_simulated = line.Kind() == Form::SimThreadStarted;
        m_searchSince = line.where;
        m_lostAt.reset();
        BeginSearch(line.where);
        break;
    case Form::FoundDevice:
        if (line.match.Number(0) == VendorId) {
            m_product = line.match.Number(1);
        }
        break;
    case Form::ConnectFailed:
        ++m_attempts;
        if (m_state == State::Unknown) {
            BeginSearch(line.where);
        }
        break;
    case Form::SimLooking:
    case Form::SimIdle:
    case Form::SimWritten: m_simulated = true; break;
    case Form::SimConnectOpened:
        m_simulated = true;
        Connected(line.where);
        break;
    case Form::ConnectOpened:
        m_simulated = false;
        Connected(line.where);
        break;
    case Form::NotifyState: TakeNotified(line); break;
    default: break;
    }
}

void ConnectionStory::TakeNotified(const LogLine& line)
{
    if (line.match.Text(0) == "Connected") {
        Connected(line.where);
    } else if (m_state == State::Connected || m_failure) {
        Lost(line.where);
    } else if (m_state == State::Unknown) {
        BeginSearch(line.where);
    }
}

void ConnectionStory::TakeFailure(const LogLine& line)
{
    if (line.Kind() == Form::ReceiveFailed) {
        const std::int64_t error = line.match.Number(0);
        if (error == 0) {
            Incident stopped{
                .kind = IncidentKind::ReadingStopped, .traceClass = TraceClass::Usb, .where = line.where};
            m_incidents.Add(std::move(stopped));
        } else if (m_state != State::Searching && !(m_failure && m_failure->error != 0)) {
            m_failure = Failure{m_failure ? m_failure->where : line.where, error, true};
        }
    } else if (line.Kind() == Form::SendFailed && m_state != State::Searching && !m_failure) {
        m_failure = Failure{line.where, 0, false};
    } else if (line.Kind() == Form::UsbWritten || line.Kind() == Form::SimWritten) {
        // A write that failed without an error of Windows changes nothing.
        if (m_failure && m_failure->error == 0) {
            m_failure.reset();
        }
    }
}

void ConnectionStory::TakeTraffic(const LogLine& line)
{
    switch (line.Kind()) {
    case Form::NumberGap: TakeGap(line); break;
    case Form::UsbWriteAborted:
    case Form::UsbIdleWriteAborted: m_aborted.Join(line.where, line.match.Number(0)); break;
    case Form::SimWriteBusy:
    case Form::SimIdleWriteBusy: m_simulatorSlow.Join(line.where); break;
    case Form::SubmitNoConnection:
    case Form::PacketIgnored:
        m_requestsDropped.Join(line.where);
        m_requestsDroppedClass = line.match.format->traceClass;
        break;
    case Form::NoDestination: {
        const PortAddress port{static_cast<std::int32_t>(line.match.Number(0)),
                               static_cast<std::int32_t>(line.match.Number(1))};
        if (m_unknownDestinations.size() >= MostOpenDestinations && !m_unknownDestinations.contains(port)) {
            CloseBursts(EndOfTime, 0);
        }
        m_unknownDestinations[port].Join(line.where);
        break;
    }
    case Form::ReplyError:
        m_incidents.Add(
            {.kind = IncidentKind::ReplyError, .traceClass = TraceClass::ReadWrite, .where = line.where});
        break;
    default: break;
    }
}

// The router computes the expected number without the wrap to 8 bits: 255 followed by 0 is reported and is no gap.
void ConnectionStory::TakeGap(const LogLine& line)
{
    constexpr std::int64_t Numbers = 256;
    const std::int64_t received = line.match.Number(0);
    const std::int64_t expected = line.match.Number(1);
    if (received < 0 || received >= Numbers || expected < 1 || expected > Numbers ||
        received == expected % Numbers)
    {
        return;
    }
    Incident gap{.kind = IncidentKind::NumberGap, .traceClass = TraceClass::Usb, .where = line.where};
    gap.count = (received - expected + 2 * Numbers) % Numbers;
    gap.first = expected % Numbers;
    gap.second = received;
    m_incidents.Add(std::move(gap));
}

void ConnectionStory::Connected(const Where& where)
{
    m_failure.reset();
    if (m_state == State::Connected) {
        return;
    }
    Incident connected{.kind = IncidentKind::InstrumentConnected, .traceClass = TraceClass::Usb, .where = where};
    connected.simulated = m_simulated;
    connected.second = m_simulated ? 0 : m_product;
    connected.count = m_attempts;
    if (m_lostAt) {
        connected.kind = IncidentKind::InstrumentReconnected;
        connected.duration = std::max<std::int64_t>(where.time - m_lostAt->time, 0);
    } else if (m_searchSince) {
        connected.duration = std::max<std::int64_t>(where.time - m_searchSince->time, 0);
    }
    m_incidents.Add(std::move(connected));
    m_state = State::Connected;
    m_since = where;
    m_lostAt.reset();
    m_searchSince.reset();
    m_attempts = 0;
}

void ConnectionStory::Lost(const Where& where)
{
    const std::optional<Failure> failure = std::exchange(m_failure, std::nullopt);
    Incident lost{.kind = IncidentKind::InstrumentLost, .traceClass = TraceClass::Usb};
    lost.where = failure ? failure->where : where;
    lost.first = failure ? failure->error : 0;
    lost.second = !failure ? 0 : failure->reading ? 1 : 2;
    lost.simulated = m_simulated;
    if (m_state == State::Connected && m_since.hasTime) {
        lost.duration = std::max<std::int64_t>(lost.where.time - m_since.time, 0);
    }
    m_lostAt = lost.where;
    BeginSearch(lost.where);
    m_incidents.Add(std::move(lost));
    m_justLost = true;
}

void ConnectionStory::BeginSearch(const Where& where)
{
    m_state = State::Searching;
    m_since = where;
    m_attempts = 0;
    m_failure.reset();
}

void ConnectionStory::CloseBursts(LogTime now, std::int64_t within)
{
    const auto add = [this](IncidentKind kind, TraceClass traceClass, Burst& burst) {
        Incident incident{.kind = kind, .traceClass = traceClass, .where = burst.First()};
        incident.duration = burst.Duration();
        incident.count = burst.Count();
        incident.first = burst.Most();
        incident.simulated = m_simulated;
        m_incidents.Add(std::move(incident));
        burst.Close();
    };
    if (m_aborted.IsOver(now, within)) {
        add(IncidentKind::WritesAborted, TraceClass::Usb, m_aborted);
    }
    if (m_simulatorSlow.IsOver(now, within)) {
        add(IncidentKind::SimulatorSlow, TraceClass::Usb, m_simulatorSlow);
    }
    if (m_requestsDropped.IsOver(now, within)) {
        add(IncidentKind::RequestsDropped, m_requestsDroppedClass, m_requestsDropped);
    }
    for (auto each = m_unknownDestinations.begin(); each != m_unknownDestinations.end();) {
        if (each->second.IsOver(now, within)) {
            CloseUnknownDestination(each->first, each->second);
            each = m_unknownDestinations.erase(each);
        } else {
            ++each;
        }
    }
}

void ConnectionStory::CloseUnknownDestination(const PortAddress& port, Burst& burst)
{
    Incident dropped{
        .kind = IncidentKind::UnknownDestination, .traceClass = TraceClass::Usb, .where = burst.First()};
    dropped.duration = burst.Duration();
    dropped.count = burst.Count();
    dropped.port = port;
    m_incidents.Add(std::move(dropped));
}

void ConnectionStory::Reset()
{
    Finish();
    m_state = State::Unknown;
    m_lostAt.reset();
    m_searchSince.reset();
    m_attempts = 0;
}

void ConnectionStory::Finish()
{
    // A failed read with an error is a lost connection even where the log ends before the router says so.
    if (m_failure && m_failure->error != 0 && m_state != State::Searching) {
        Lost(m_failure->where);
    }
    m_failure.reset();
    CloseBursts(EndOfTime, 0);
}

} // namespace routerlog
