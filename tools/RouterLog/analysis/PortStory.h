// Ports, their pipes and their clients as the log tells them. Portable.
#pragma once

#include "tools/RouterLog/analysis/Histogram.h"
#include "tools/RouterLog/analysis/Incident.h"
#include "tools/RouterLog/analysis/Timeline.h"

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace routerlog {

/// What packets say about one port.
struct PortTraffic
{
    std::uint64_t requests = 0, requestBytes = 0;
    std::uint64_t replies = 0, replyBytes = 0;
    std::uint64_t unasked = 0;    // replies that no request was open for
    std::uint64_t unanswered = 0; // requests given up
    std::uint64_t dropped = 0;    // packets for a port without a client
    Histogram answerTimes;
    std::deque<LogTime> open; // requests without an answer yet, at most MostOpen
    Burst droppedBurst;

    static constexpr std::size_t MostOpen = 4'096;
};

/// What pipe lines say about one port. Its address stands in no such line: it is found by which pipes are
/// connected when packets go, where that leaves only one.
struct PortPipe
{
    std::string name; // without "\\.\pipe\"
    std::optional<PortAddress> address{};
    bool connected = false;
    bool closing = false;
    Where since{}; // of the connection, or of the lack of one
    Burst stall{};
};

/// One thread. Takes every line in turn.
class PortStory
{
public:
    static constexpr std::size_t MostPorts = 256; // further ones are only counted

    explicit PortStory(IncidentLog& incidents) : m_incidents(incidents) {}

    void Take(const LogLine& line);
    /// The router lost its connection: it closes all pipes.
    void CutOffClients(const Where& where);
    /// The process ended or a new one began.
    void Reset(const Where& where);
    /// After the last line.
    void Finish(const Where& last);

    const std::map<PortAddress, std::unique_ptr<PortTraffic>>& Traffic() const noexcept { return m_traffic; }
    const std::vector<PortPipe>& Pipes() const noexcept { return m_pipes; }
    const TrafficTimeline& Course() const noexcept { return m_course; }
    std::uint64_t PacketsOfFurtherPorts() const noexcept { return m_furtherPackets; }
    /// Whether a client still does not read at the end of the log.
    static bool IsStalled(const PortPipe& pipe, LogTime now) noexcept;

private:
    using Candidates = std::vector<std::string>; // pipes that may belong to an address

    void TakePipe(const LogLine& line);
    void TakePacket(const LogLine& line);
    void TakeRequest(const PortAddress& address, PortTraffic& port, std::int64_t bytes, const Where& where);
    void TakeReply(const PortAddress& address, PortTraffic& port, std::int64_t bytes, const Where& where);
    void TakeDropped(const PortAddress& address, PortTraffic& port, const Where& where);
    PortTraffic* TrafficOf(const PortAddress& address);
    PortPipe* PipeOf(std::string_view fullName, const Where& where);
    void Narrow(const PortAddress& address);
    void Connect(PortPipe& pipe, const Where& where);
    void Disconnect(PortPipe& pipe, IncidentKind kind, const Where& where, std::int64_t error = 0);
    void ForgetOpenRequests(PortTraffic& port);
    void ClosePipe(PortPipe& pipe, const Where& where);
    void CloseStall(PortPipe& pipe);
    void CloseDropped(const PortAddress& address, PortTraffic& port);
    void CloseOverBursts(LogTime now);
    Incident Of(IncidentKind kind, const PortPipe& pipe, const Where& where) const;

    IncidentLog& m_incidents;
    std::map<PortAddress, std::unique_ptr<PortTraffic>> m_traffic;
    std::vector<PortPipe> m_pipes;
    std::map<PortAddress, Candidates> m_candidates; // of addresses whose pipe is not known yet
    TrafficTimeline m_course;
    std::uint64_t m_furtherPackets = 0;
    int m_openBursts = 0;
};

} // namespace routerlog
