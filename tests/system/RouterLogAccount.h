// What became of every packet, by the router's trace log and by what the instrument got.
#pragma once

#include <cstddef>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// For packets whose payloads are a letter x or y and seven digits, each sent once, over a log with the router's
/// USB and packet traces and its clients' packet traces.
class RouterLogAccount
{
public:
    RouterLogAccount(const std::filesystem::path& log, const std::vector<std::string>& arrived);

    std::size_t Connections() const noexcept { return m_connections; }
    std::size_t Arrived() const noexcept { return m_arrived.size(); }

    /// Packets of which neither arrival nor loss is on record, and what else does not add up, a line each; empty
    /// when there is nothing.
    const std::string& Faults() const noexcept { return m_faults; }
    std::string Summary() const;

private:
    void TakeLine(std::string_view line);
    void Begin(std::string payload);
    void DropPendingWrite();
    void CheckArrivals(const std::vector<std::string>& arrived);
    void CheckAcceptedPackets();
    void Fault(const std::string& what);

    std::set<std::string> m_read;    // by the ports, from the clients
    std::set<std::string> m_begun;   // their writes to the instrument were begun
    std::set<std::string> m_written; // and reported complete
    std::set<std::string> m_arrived;
    std::size_t m_ignored = 0; // by a port, for want of a connection
    std::size_t m_refused = 0; // by the transport, for the same reason
    std::size_t m_dropped = 0; // their writes ended with a failure, an abort or the connection
    std::size_t m_connections = 0;
    bool m_underWay = false;
    std::string m_current; // the packet of the pending write, empty for an idle packet
    std::string m_faults;
};
