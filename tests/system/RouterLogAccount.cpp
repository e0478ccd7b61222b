#include "tests/system/RouterLogAccount.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <utility>

namespace {

constexpr std::size_t PayloadLength = 8;
constexpr std::size_t FaultsTold = 2'000; // characters

bool Has(std::string_view line, std::string_view part)
{
    return line.find(part) != std::string_view::npos;
}

/// The payload in a dump, which puts a blank after each byte; empty when there is none. A frame's header may look
/// like one by chance, so the last counts.
std::string PayloadIn(std::string_view line)
{
    std::string text;
    std::ranges::copy_if(line, std::back_inserter(text), [](char c) { return c != ' '; });
    for (std::size_t at = text.size(); at-- > 0;) {
        if ((text[at] != 'x' && text[at] != 'y') || text.size() - at < PayloadLength) {
            continue;
        }
        std::string payload = text.substr(at, PayloadLength);
        if (std::all_of(payload.begin() + 1, payload.end(), [](char c) { return c >= '0' && c <= '9'; })) {
            return payload;
        }
    }
    return {};
}

} // namespace

RouterLogAccount::RouterLogAccount(const std::filesystem::path& log, const std::vector<std::string>& arrived)
{
    std::ifstream in(log);
    for (std::string line; std::getline(in, line);) {
        TakeLine(line);
    }
    CheckArrivals(arrived);
    CheckAcceptedPackets();
}

void RouterLogAccount::TakeLine(std::string_view line)
{
    constexpr std::array<std::string_view, 4> EndsOfWrites{
        "Command-sent failed, reconnecting",
        "abort previous Write operation",
        "IDLE,  WARNING: Write operation incomplete",
        "NotifyState(Not Connected)",
    };
    if (Has(line, "DEV->PCR[")) {
        m_read.insert(PayloadIn(line));
    } else if (Has(line, "PCR->USB[")) {
        Begin(PayloadIn(line));
    } else if (Has(line, "overlapped write")) {
        m_written.insert(m_current);
        m_underWay = false;
    } else if (Has(line, "Warning: Packet ignored")) {
        ++m_ignored;
    } else if (Has(line, "CCyUSBDriver::Submit() No connection")) {
        ++m_refused;
    } else if (Has(line, "Connection to USB opened")) {
        ++m_connections;
    } else if (std::ranges::any_of(EndsOfWrites, [&](std::string_view end) { return Has(line, end); })) {
        DropPendingWrite();
    }
}

void RouterLogAccount::Begin(std::string payload)
{
    if (m_underWay) {
        Fault("the write of '" + m_current + "' has no end");
    }
    if (!payload.empty() && !m_begun.insert(payload).second) {
        Fault("the write of " + payload + " was begun twice");
    }
    m_current = std::move(payload);
    m_underWay = true;
}

void RouterLogAccount::DropPendingWrite()
{
    m_dropped += m_underWay && !m_current.empty() ? 1 : 0;
    m_underWay = false;
}

void RouterLogAccount::CheckArrivals(const std::vector<std::string>& arrived)
{
    for (const std::string& payload : arrived) {
        if (!m_arrived.insert(payload).second) {
            Fault(payload + " arrived twice");
        }
        if (!m_begun.contains(payload)) {
            Fault(payload + " arrived and was never begun");
        }
    }
    for (const std::string& payload : m_written) {
        if (!payload.empty() && !m_arrived.contains(payload)) {
            Fault(payload + " was written and did not arrive");
        }
    }
}

// Whatever the ports read was begun, or it was refused with a trace: as many as were not begun, and one more for
// an idle packet that was refused in the same moment.
void RouterLogAccount::CheckAcceptedPackets()
{
    const auto unbegun = static_cast<std::size_t>(
        std::ranges::count_if(m_read, [&](const std::string& payload) { return !m_begun.contains(payload); }));
    if (unbegun < m_ignored || unbegun > m_ignored + m_refused) {
        Fault(std::to_string(unbegun) + " packets were read and not written, " + std::to_string(m_ignored) +
              " ignored and " + std::to_string(m_refused) + " refused");
    }
    for (const std::string& payload : m_begun) {
        if (!m_read.contains(payload)) {
            Fault(payload + " was written and never read");
        }
    }
}

void RouterLogAccount::Fault(const std::string& what)
{
    if (m_faults.size() < FaultsTold) {
        m_faults += what + "\n";
    }
}

std::string RouterLogAccount::Summary() const
{
    return std::to_string(m_connections) + " connections, " + std::to_string(m_read.size()) + " packets read, " +
           std::to_string(m_arrived.size()) + " arrived; traced as dropped: " + std::to_string(m_dropped) +
           " in mid-write, " + std::to_string(m_ignored) + " ignored, " + std::to_string(m_refused) + " refused";
}
