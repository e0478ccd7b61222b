// The packet account of one run: each packet goes its way once and in order, or a row says why not.
#pragma once

#include "simulation/kernel/Pipes.h"

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <span>
#include <string>
#include <string_view>

namespace sim {

/// Why a packet is missing or comes again: what the router is described to do.
enum class Row {
    Ignored,            // "Warning: Packet ignored": the instrument is gone or not ready
    NoConnection,       // submitted while there is no connection
    EmptyMessage,       // nothing to hand over
    RepeatedAtLimit,    // 500 are pending: the last message is handed over again
    LostWithInstrument, // on its way to an instrument that left, or written to it in vain
    NoClient,           // "** NO_CONNECTION **"
    LostWithClient,     // queued or written for a client that left, or emptied at the recreation
    LostFromInstrument, // sent by the instrument and not read before the connection ended
    CutPacket,          // completed with bytes of the next connection, by design: the reply buffer outlives one
    Count
};

inline constexpr std::size_t RowCount = static_cast<std::size_t>(Row::Count);

/// Called from inside the product's and the stand-in's calls; every violation ends the run.
class Account final : public IPipeWatch
{
public:
    /// A port whose packets are accounted.
    void AddPort(std::uint8_t deviceType, std::uint8_t port, const std::string& pipe);

    // The port reads and hands over.
    void OnServerRead(const std::string& pipe, const std::uint8_t* bytes, std::size_t length) override;
    void OnServerClosed(const std::string& pipe) override;
    void OnUnreadDropped(const std::string& pipe) override;
    void OnSubmitted(std::uint8_t deviceType, std::uint8_t port, std::span<const std::uint8_t> payload,
                     bool atLimit);
    void OnIgnored(std::int32_t deviceType);
    void OnNotConnected(); // of the submit in hand
    void OnPacketCompleted(int deviceType, int port);
    /// The worker of a port asks whether what it has read may be sent.
    void OnReadinessAsked();
    /// Between two connections: from the report that one has ended until the link is open again.
    bool IsBetween() const { return m_isBetween; }
    std::uint64_t Ends() const { return m_ends; }
    void OnReadyBetween() const { Violated("a port takes the transport for ready between two connections"); }

    // The instrument takes and answers.
    void OnInstrumentConnected();
    void OnNumber(std::uint8_t number); // of the packet in hand
    void OnInstrumentGot(std::uint8_t deviceType, std::uint8_t port, std::span<const std::uint8_t> payload);
    void OnInstrumentSent(std::uint8_t deviceType, std::uint8_t port, std::span<const std::uint8_t> payload);

    // The transport delivers, the client reads.
    void OnDelivered(std::int32_t deviceType, std::int32_t port, std::span<const std::uint8_t> payload);
    void OnNoClient(std::int32_t deviceType); // of the delivery in hand
    void OnClientGot(const std::string& pipe, std::string_view message);

    /// The connection to the instrument was lost, a write was given up: what was on its way may be gone.
    void OnLoss() { ++m_losses; }
    std::uint64_t Losses() const { return m_losses; }
    /// A connection to the instrument begins, or the one before has ended.
    void OnConnected() { m_connection = m_ends; }
    void OnLinkOpened()
    {
        m_isBetween = false;
        m_hasLink = true;
    }
    /// The device comes back after a while: the connection that it had must have ended.
    void OnPluggedAgain() const;
    void OnDisconnected();
    void OnPipeCreated(std::int32_t deviceType);
    /// While a port is in the table it is told of the ends of connections. Its worker runs before that and after.
    void OnPortAdded(std::uint8_t deviceType, std::uint8_t port);
    void OnPortsRemoved();
    /// A transfer has failed, which ends the connection: only an instrument that leaves is a reason for it.
    void OnTransferFailed();
    void OnInstrumentLeaves() { m_instrumentStayed = false; }
    /// The instrument writes packets in pieces, so the end of a connection may cut one.
    void ExpectCuts() { m_mayCut = true; }
    /// Faults were injected, memory among them: nothing is judged any more.
    void StopJudging() { m_judges = false; }
    /// At the end, when all clients have got their answers.
    void CheckEnd() const;

    static std::array<std::uint64_t, RowCount>& Rows();
    static const char* NameOf(Row row);

private:
    struct Packet
    {
        std::string bytes;
        std::uint64_t losses;         // when it set out
        std::uint64_t receivedIn = 0; // the connection in which the instrument had got a packet by then
    };
    using Way = std::deque<Packet>;

    static constexpr std::uint64_t Unknown = ~std::uint64_t{0};

    struct Port
    {
        std::string pipe;
        Way read;         // completed reads that were not handed over
        std::string last; // handed over last
        Way submitted;    // on the way to the instrument
        Way sent;         // on the way from the instrument to the port
        Way delivered;    // on the way to the client
        std::uint64_t closings = 0;
        bool isInTable = false;
        std::uint64_t createdIn = Unknown;    // the connection in which its pipe was created, or a later one
        std::uint64_t got = 0, completed = 0; // packets: at the instrument, and said to be written
    };

    static int KeyOf(int deviceType, int port) { return deviceType << 8 | port; }
    Port* Find(int deviceType, int port);
    Port* FindPipe(const std::string& pipe);
    void Count(Row row, std::uint64_t times = 1) { Rows()[static_cast<std::size_t>(row)] += times; }
    /// Takes `bytes` out of `way`; what stands before it is lost, which `losses` must excuse.
    void Take(Way& way, std::string_view bytes, std::uint64_t losses, Row row, const char* what);
    bool IsCut(std::uint64_t losses) const { return m_mayCut && losses > 2; } // the first two begin the run
    void Violated(const std::string& rule) const;

    std::map<int, Port> m_ports;
    Port* m_submitting = nullptr; // its submit is in hand, by the fiber
    int m_submittingFiber = -1;
    std::map<int, std::uint64_t> m_askedIn; // by fiber: the connection in which it asked for readiness
    std::uint64_t m_losses = 0;
    std::uint64_t m_ends = 0;                 // of connections
    std::uint64_t m_connection = 0;           // how many had ended when it began
    std::uint64_t m_instrumentConnection = 0; // at present, and the last one in which a packet has come
    std::uint64_t m_receivedIn = 0;
    std::uint64_t m_lossesAtConnection = 0;
    bool m_hasRestarted = false; // a packet numbered 0 has come in this connection
    bool m_isBetween = false;
    bool m_hasLink = false; // or had one
    bool m_instrumentStayed = true;
    bool m_mayCut = false;
    bool m_judges = true;
};

} // namespace sim
