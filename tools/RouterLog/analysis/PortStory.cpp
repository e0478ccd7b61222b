#include "tools/RouterLog/analysis/PortStory.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace routerlog {

namespace {

constexpr std::string_view PipePrefix = "\\\\.\\pipe\\";

// A client that does not read is told of every 100 ms.
constexpr std::int64_t StallPause = 1'000;   // ms
constexpr std::int64_t DroppedPause = 2'000; // ms
constexpr std::int64_t TimePerDenial = 200;  // ms that a write was pending before the first line about it
// A client that asks again after so long has given up on what it asked before.
constexpr std::int64_t RequestGivenUp = 2'000; // ms

std::string_view ShortName(std::string_view fullName) noexcept
{
    return fullName.starts_with(PipePrefix) ? fullName.substr(PipePrefix.size()) : fullName;
}

bool IsClient(const PortPipe& pipe) noexcept
{
    return pipe.connected;
}

} // namespace

void PortStory::Take(const LogLine& line)
{
    if (m_openBursts > 0) {
        CloseOverBursts(line.where.time);
    }
    if (line.match.format->traceClass == TraceClass::Pipe) {
        TakePipe(line);
    } else if (line.match.format->traceClass == TraceClass::Packets) {
        TakePacket(line);
    }
}

void PortStory::TakePipe(const LogLine& line)
{
    const std::string_view name = line.match.Text(0);
    PortPipe* const pipe = name.empty() ? nullptr : PipeOf(name, line.where);
    if (pipe == nullptr) {
        return;
    }
    switch (line.Kind()) {
    case Form::PipeStarted: m_incidents.Add(Of(IncidentKind::PortOpened, *pipe, line.where)); break;
    case Form::PipeConnected:
    case Form::PipeConnectMissed: Connect(*pipe, line.where); break;
    case Form::PipeCreated:
        // A pipe is recreated under its client when the connection to the instrument has changed.
        Disconnect(*pipe, IncidentKind::ClientCutOff, line.where);
        break;
    case Form::PipeReadBroken:
    case Form::PipeWriteBroken:
        Disconnect(*pipe, IncidentKind::ClientWent, line.where, line.match.Number(1));
        break;
    case Form::PipeWriteDenied:
        m_openBursts += pipe->stall.IsOpen() ? 0 : 1;
        pipe->stall.Join(line.where, line.match.Number(1));
        break;
    case Form::PipeShuttingDown: pipe->closing = true; break;
    case Form::PipeEnded: ClosePipe(*pipe, line.where); break;
    default: break;
    }
}

void PortStory::TakePacket(const LogLine& line)
{
    if (line.Kind() != Form::Request && line.Kind() != Form::Reply && line.Kind() != Form::NoConnection) {
        return;
    }
    const PortAddress address{static_cast<std::int32_t>(line.match.Number(0)),
                              static_cast<std::int32_t>(line.match.Number(1))};
    PortTraffic* const port = TrafficOf(address);
    const std::int64_t bytes = line.match.Number(2);
    if (port == nullptr || bytes < 0) {
        ++m_furtherPackets;
        return;
    }
    switch (line.Kind()) {
    case Form::Request: TakeRequest(address, *port, bytes, line.where); break;
    case Form::Reply: TakeReply(address, *port, bytes, line.where); break;
    default: TakeDropped(address, *port, line.where); return;
    }
    if (!m_pipes.empty()) {
        Narrow(address);
    }
}

void PortStory::TakeRequest(const PortAddress& address, PortTraffic& port, std::int64_t bytes, const Where& where)
{
    if (!port.open.empty() && where.time - port.open.back() > RequestGivenUp) {
        ForgetOpenRequests(port);
    }
    if (port.open.size() >= PortTraffic::MostOpen) {
        port.open.pop_front();
        ++port.unanswered;
    }
    port.open.push_back(where.time);
    ++port.requests;
    port.requestBytes += static_cast<std::uint64_t>(bytes);
    TrafficTimeline::Cell& cell = m_course.At(address, where.time);
    ++cell.requests;
    cell.requestBytes += static_cast<std::uint64_t>(bytes);
}

// Replies carry nothing that names their request; a port's instrument answers in order.
void PortStory::TakeReply(const PortAddress& address, PortTraffic& port, std::int64_t bytes, const Where& where)
{
    ++port.replies;
    port.replyBytes += static_cast<std::uint64_t>(bytes);
    TrafficTimeline::Cell& cell = m_course.At(address, where.time);
    ++cell.replies;
    cell.replyBytes += static_cast<std::uint64_t>(bytes);
    if (port.open.empty()) {
        ++port.unasked;
        return;
    }
    const std::int64_t time = std::max<std::int64_t>(where.time - port.open.front(), 0);
    port.open.pop_front();
    port.answerTimes.Add(time);
    ++cell.answers;
    cell.answerTime += time;
    cell.longestAnswer = std::max(cell.longestAnswer, time);
}

void PortStory::TakeDropped(const PortAddress& address, PortTraffic& port, const Where& where)
{
    ++port.dropped;
    if (port.droppedBurst.IsOver(where.time, DroppedPause)) {
        CloseDropped(address, port);
    }
    m_openBursts += port.droppedBurst.IsOpen() ? 0 : 1;
    port.droppedBurst.Join(where);
}

PortTraffic* PortStory::TrafficOf(const PortAddress& address)
{
    const auto found = m_traffic.find(address);
    if (found != m_traffic.end()) {
        return found->second.get();
    }
    if (m_traffic.size() >= MostPorts) {
        return nullptr;
    }
    return m_traffic.emplace(address, std::make_unique<PortTraffic>()).first->second.get();
}

PortPipe* PortStory::PipeOf(std::string_view fullName, const Where& where)
{
    const std::string_view name = ShortName(fullName);
    const auto found = std::ranges::find(m_pipes, name, &PortPipe::name);
    if (found != m_pipes.end()) {
        return &*found;
    }
    if (m_pipes.size() >= MostPorts) {
        return nullptr;
    }
    m_pipes.push_back({.name = std::string(name), .address = {}, .since = where, .stall = {}});
    return &m_pipes.back();
}

// Packets of a port go only while its pipe is connected: what is not connected now is not its pipe.
void PortStory::Narrow(const PortAddress& address)
{
    const auto isKnown = [&](const PortPipe& pipe) { return pipe.address == address; };
    if (std::ranges::any_of(m_pipes, isKnown)) {
        return;
    }
    const auto isPossible = [](const PortPipe& pipe) { return pipe.connected && !pipe.address; };
    const auto [at, isNew] = m_candidates.try_emplace(address);
    Candidates& candidates = at->second;
    if (isNew) {
        for (const PortPipe& pipe : m_pipes) {
            if (isPossible(pipe)) {
                candidates.push_back(pipe.name);
            }
        }
    } else {
        std::erase_if(candidates, [&](const std::string& name) {
            const auto pipe = std::ranges::find(m_pipes, name, &PortPipe::name);
            return pipe == m_pipes.end() || !isPossible(*pipe);
        });
    }
    // RouterProbe puts the address into its pipes' names.
    const std::string hint = "-" + std::to_string(address.deviceType) + "-" + std::to_string(address.port) + ".";
    const auto hinted = std::ranges::find_if(
        candidates, [&](const std::string& name) { return name.find(hint) != std::string::npos; });
    if (candidates.size() == 1 || hinted != candidates.end()) {
        const std::string name = hinted != candidates.end() ? *hinted : candidates.front();
        std::ranges::find(m_pipes, name, &PortPipe::name)->address = address;
        m_candidates.erase(at);
    }
}

void PortStory::Connect(PortPipe& pipe, const Where& where)
{
    if (pipe.connected) {
        return; // noticed twice
    }
    m_incidents.Add(Of(IncidentKind::ClientCame, pipe, where));
    pipe.connected = true;
    pipe.since = where;
}

void PortStory::Disconnect(PortPipe& pipe, IncidentKind kind, const Where& where, std::int64_t error)
{
    CloseStall(pipe);
    if (!std::exchange(pipe.connected, false)) {
        return;
    }
    Incident went = Of(kind, pipe, where);
    went.duration = std::max<std::int64_t>(where.time - pipe.since.time, 0);
    went.first = error;
    m_incidents.Add(std::move(went));
    pipe.since = where;
    if (pipe.address) {
        if (PortTraffic* const port = TrafficOf(*pipe.address)) {
            ForgetOpenRequests(*port);
        }
    }
}

void PortStory::ForgetOpenRequests(PortTraffic& port)
{
    port.unanswered += port.open.size();
    port.open.clear();
}

void PortStory::ClosePipe(PortPipe& pipe, const Where& where)
{
    CloseStall(pipe);
    Incident closed = Of(IncidentKind::PortClosed, pipe, where);
    closed.count = pipe.connected ? 1 : 0;
    m_incidents.Add(std::move(closed));
    m_pipes.erase(m_pipes.begin() + (&pipe - m_pipes.data()));
}

void PortStory::CloseStall(PortPipe& pipe)
{
    if (!pipe.stall.IsOpen()) {
        return;
    }
    Incident stalled = Of(IncidentKind::ClientStalled, pipe, pipe.stall.First());
    stalled.duration = pipe.stall.Duration() + TimePerDenial;
    stalled.first = pipe.stall.Most();
    m_incidents.Add(std::move(stalled));
    pipe.stall.Close();
    --m_openBursts;
}

void PortStory::CloseDropped(const PortAddress& address, PortTraffic& port)
{
    if (!port.droppedBurst.IsOpen()) {
        return;
    }
    Incident dropped{.kind = IncidentKind::RepliesDropped,
                     .traceClass = TraceClass::Packets,
                     .where = port.droppedBurst.First()};
    dropped.port = address;
    dropped.count = port.droppedBurst.Count();
    dropped.duration = port.droppedBurst.Duration();
    m_incidents.Add(std::move(dropped));
    port.droppedBurst.Close();
    --m_openBursts;
}

void PortStory::CloseOverBursts(LogTime now)
{
    for (PortPipe& pipe : m_pipes) {
        if (pipe.stall.IsOver(now, StallPause)) {
            CloseStall(pipe);
        }
    }
    for (auto& [address, port] : m_traffic) {
        if (port->droppedBurst.IsOver(now, DroppedPause)) {
            CloseDropped(address, *port);
        }
    }
}

void PortStory::CutOffClients(const Where& where)
{
    for (PortPipe& pipe : m_pipes) {
        Disconnect(pipe, IncidentKind::ClientCutOff, where);
    }
    for (auto& [address, port] : m_traffic) {
        ForgetOpenRequests(*port);
    }
}

void PortStory::Reset(const Where&)
{
    CloseOverBursts(std::numeric_limits<LogTime>::max());
    m_pipes.clear();
    m_candidates.clear();
    for (auto& [address, port] : m_traffic) {
        ForgetOpenRequests(*port);
    }
}

void PortStory::Finish(const Where&)
{
    for (PortPipe& pipe : m_pipes) {
        CloseStall(pipe);
    }
    for (auto& [address, port] : m_traffic) {
        CloseDropped(address, *port);
    }
}

bool PortStory::IsStalled(const PortPipe& pipe, LogTime now) noexcept
{
    return IsClient(pipe) && pipe.stall.IsOpen() && !pipe.stall.IsOver(now, StallPause);
}

Incident PortStory::Of(IncidentKind kind, const PortPipe& pipe, const Where& where) const
{
    Incident incident{.kind = kind, .traceClass = TraceClass::Pipe, .where = where};
    incident.port = pipe.address;
    incident.name = pipe.name;
    return incident;
}

} // namespace routerlog
