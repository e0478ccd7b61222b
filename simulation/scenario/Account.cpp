#include "simulation/scenario/Account.h"

#include "simulation/kernel/Scheduler.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::array<const char*, RowCount> Names = {
    "ignored: the instrument is gone or not ready",
    "submitted without a connection",
    "empty message",
    "handed over again at 500 pending",
    "lost with the instrument",
    "no client is connected",
    "lost with the client or its pipe",
    "sent by the instrument and never read",
    "cut by the end of a connection",
};

std::string TextOf(std::span<const std::uint8_t> bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; // in one copy
}

std::string Shown(std::string_view bytes)
{
    return '"' + std::string(bytes.substr(0, 24)) + '"';
}

} // namespace

std::array<std::uint64_t, RowCount>& Account::Rows()
{
    static std::array<std::uint64_t, RowCount> rows{};
    return rows;
}

const char* Account::NameOf(Row row)
{
    return Names[static_cast<std::size_t>(row)];
}

void Account::AddPort(std::uint8_t deviceType, std::uint8_t port, const std::string& pipe)
{
    m_ports[KeyOf(deviceType, port)].pipe = pipe;
}

Account::Port* Account::Find(int deviceType, int port)
{
    const auto found = m_ports.find(KeyOf(deviceType, port));
    return found != m_ports.end() ? &found->second : nullptr;
}

Account::Port* Account::FindPipe(const std::string& pipe)
{
    for (auto& entry : m_ports) {
        if (entry.second.pipe == pipe) {
            return &entry.second;
        }
    }
    return nullptr;
}

void Account::Violated(const std::string& rule) const
{
    if (m_judges) {
        Fault(rule);
    }
}

void Account::Take(Way& way, std::string_view bytes, std::uint64_t losses, Row row, const char* what)
{
    const auto found =
        std::find_if(way.begin(), way.end(), [=](const Packet& packet) { return packet.bytes == bytes; });
    const bool isExcused = row == Row::LostFromInstrument && IsCut(losses);
    if (found == way.end()) {
        if (isExcused) {
            return Count(Row::CutPacket);
        }
        Violated(std::string(what) + " that was not sent, came twice or out of order: " + Shown(bytes));
        return;
    }
    for (auto at = way.begin(); at != found; ++at) {
        if (at->losses == losses && !isExcused) {
            Violated(std::string(what) + " after one that is missing: " + Shown(at->bytes));
        }
        Count(row);
    }
    // Of two alike either may have been lost: the one that is left need not come.
    const bool isOld = found->losses != losses;
    way.erase(way.begin(), found + 1);
    for (Packet& packet : way) {
        if (isOld && packet.bytes == bytes) {
            packet.losses = 0;
        }
    }
}

void Account::OnServerRead(const std::string& pipe, const std::uint8_t* bytes, std::size_t length)
{
    Port* const port = FindPipe(pipe);
    if (port == nullptr) {
        return;
    }
    if (length == 0) {
        Count(Row::EmptyMessage);
        return;
    }
    port->read.push_back({TextOf({bytes, length}), 0});
}

void Account::OnServerClosed(const std::string& pipe)
{
    Port* const port = FindPipe(pipe);
    if (port == nullptr) {
        return;
    }
    if (!port->read.empty()) {
        Violated("a message was read and never handed over: " + Shown(port->read.front().bytes));
        port->read.clear();
    }
    port->last.clear(); // a kept message is dropped with its pipe
    ++port->closings;
}

void Account::OnUnreadDropped(const std::string& pipe)
{
    if (FindPipe(pipe) != nullptr) {
        Violated("what was written for a client is dropped before it could read it");
    }
}

void Account::OnSubmitted(std::uint8_t deviceType, std::uint8_t portNumber, std::span<const std::uint8_t> payload,
                          bool atLimit)
{
    Port* const port = Find(deviceType, portNumber);
    if (port == nullptr) {
        return;
    }
    const std::string bytes = TextOf(payload);
    if (!port->read.empty() && port->read.front().bytes == bytes) {
        port->read.pop_front();
    } else if (atLimit && port->last == bytes) {
        Count(Row::RepeatedAtLimit);
    } else {
        Violated("a message is handed over that was not read, twice, or out of order: " + Shown(bytes));
    }
    // Between two connections the ports are told, before the second one begins.
    if (m_askedIn[Current().id] > port->createdIn) {
        Violated("a client of an earlier connection is served in the next: " + Shown(bytes));
    }
    port->last = bytes;
    port->submitted.push_back({bytes, m_losses, m_receivedIn});
    m_submitting = port;
    m_submittingFiber = Current().id;
}

void Account::OnIgnored(std::int32_t deviceType)
{
    for (auto& [key, port] : m_ports) {
        if (key >> 8 == deviceType && !port.read.empty()) {
            port.read.pop_front();
            Count(Row::Ignored);
            return;
        }
    }
    // At 500 pending packets the message that is handed over again may be ignored as well.
    Count(Row::Ignored);
}

void Account::OnNotConnected()
{
    if (m_submitting != nullptr && m_submittingFiber == Current().id && !m_submitting->submitted.empty()) {
        m_submitting->submitted.pop_back();
        Count(Row::NoConnection);
    }
}

// The command thread says so right after the beginning of each write, so before the next one.
void Account::OnPacketCompleted(int deviceType, int portNumber)
{
    if (Port* const port = Find(deviceType, portNumber)) {
        ++port->completed;
    }
}

void Account::OnReadinessAsked()
{
    m_askedIn[Current().id] = m_connection;
}

void Account::OnDisconnected()
{
    ++m_ends;
    m_isBetween = true;
    OnLoss();
}

void Account::OnPluggedAgain() const
{
    if (m_hasLink && !m_isBetween && MayLatencyBeJudged()) {
        Violated("the router keeps a connection whose device has gone");
    }
}

void Account::OnPipeCreated(std::int32_t deviceType)
{
    for (auto& [key, port] : m_ports) {
        if (key >> 8 == deviceType) {
            port.createdIn = port.isInTable ? m_ends : Unknown;
        }
    }
}

void Account::OnPortAdded(std::uint8_t deviceType, std::uint8_t portNumber)
{
    if (Port* const port = Find(deviceType, portNumber)) {
        port->isInTable = true;
    }
}

void Account::OnPortsRemoved()
{
    for (auto& entry : m_ports) {
        entry.second.isInTable = false;
        entry.second.createdIn = Unknown;
    }
}

void Account::OnInstrumentConnected()
{
    OnLoss(); // what was written to an earlier connection is gone
    ++m_instrumentConnection;
    m_lossesAtConnection = m_losses;
    m_hasRestarted = false;
}

void Account::OnNumber(std::uint8_t number)
{
    m_receivedIn = m_instrumentConnection;
    m_hasRestarted = m_hasRestarted || number == 0;
}

void Account::OnInstrumentGot(std::uint8_t deviceType, std::uint8_t portNumber,
                              std::span<const std::uint8_t> payload)
{
    if (Port* const port = Find(deviceType, portNumber)) {
        if (port->completed < port->got++) {
            Violated("a port does not hear that its packet is being written");
        }
        // The numbers are reset before the first write of a connection. A packet that was sent after the
        // connection began must not arrive before that.
        const auto packet =
            std::find_if(port->submitted.begin(), port->submitted.end(),
                         [text = TextOf(payload)](const Packet& candidate) { return candidate.bytes == text; });
        if (packet != port->submitted.end() && packet->receivedIn == m_instrumentConnection && !m_hasRestarted &&
            m_losses == m_lossesAtConnection && MayLatencyBeJudged())
        {
            Violated("packet numbers are not reset with the connection");
        }
        Take(port->submitted, TextOf(payload), m_losses, Row::LostWithInstrument, "the instrument gets a request");
    }
}

void Account::OnInstrumentSent(std::uint8_t deviceType, std::uint8_t portNumber,
                               std::span<const std::uint8_t> payload)
{
    if (payload.empty()) {
        Count(Row::EmptyMessage);
        return;
    }
    for (auto& [key, port] : m_ports) {
        if (key == KeyOf(deviceType, portNumber) || (deviceType == 255 && (key & 0xFF) == portNumber)) {
            port.sent.push_back({TextOf(payload), m_losses});
        }
    }
}

void Account::OnDelivered(std::int32_t deviceType, std::int32_t portNumber, std::span<const std::uint8_t> payload)
{
    if (payload.empty()) {
        return;
    }
    for (auto& [key, port] : m_ports) {
        if (key == KeyOf(deviceType, portNumber) || (deviceType == -1 && (key & 0xFF) == portNumber)) {
            const std::string bytes = TextOf(payload);
            Take(port.sent, bytes, m_losses, Row::LostFromInstrument, "the transport delivers a packet");
            port.delivered.push_back({bytes, port.closings});
        }
    }
}

void Account::OnNoClient(std::int32_t deviceType)
{
    for (auto& [key, port] : m_ports) {
        if (key >> 8 == deviceType && !port.delivered.empty()) {
            port.delivered.pop_back();
            Count(Row::NoClient);
        }
    }
}

void Account::OnClientGot(const std::string& pipe, std::string_view message)
{
    if (Port* const port = FindPipe(pipe)) {
        Take(port->delivered, message, port->closings, Row::LostWithClient, "a client gets a packet");
    }
}

void Account::OnTransferFailed()
{
    if (m_instrumentStayed && MayLatencyBeJudged()) {
        Violated("a transfer fails although the instrument is there");
    }
    OnLoss();
}

void Account::CheckEnd() const
{
    for (const auto& entry : m_ports) {
        if (!entry.second.read.empty()) {
            Violated("a message was read and never handed over: " + Shown(entry.second.read.front().bytes));
        }
    }
}

} // namespace sim
