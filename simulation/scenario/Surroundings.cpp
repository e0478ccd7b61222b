#include "simulation/scenario/Surroundings.h"

#include "simulation/kernel/Memory.h"
#include "simulation/kernel/Scheduler.h"
#include "trace/PacketText.h"
#include "trace/Trace.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace sim {

namespace {

constexpr int VisitsInVain = 10; // to a port without a read buffer, which never counts as connected

struct KnownLine
{
    const char* part;
    LineMeaning meaning;
};

constexpr std::array KnownLines = {
    KnownLine{"Connection to USB-Simulation opened", LineMeaning::LinkOpened},
    KnownLine{"Connection to USB opened", LineMeaning::LinkOpened},
    KnownLine{"NotifyState(Connected)", LineMeaning::Opened},
    KnownLine{"NotifyState(Not Connected)", LineMeaning::Closed},
    KnownLine{"Command-sent failed", LineMeaning::TransferFailed},
    KnownLine{"Reply-receive failed", LineMeaning::TransferFailed},
    KnownLine{"abort previous Write operation", LineMeaning::Loss},
    KnownLine{"USBCommandProcessThread() IDLE,  WARNING: Write operation incomplete",
              LineMeaning::Loss}, // aborted
    KnownLine{"failed, reconnecting", LineMeaning::Loss},
    KnownLine{"Packet ignored", LineMeaning::Ignored},
    KnownLine{"Submit() No connection", LineMeaning::NotConnected},
    KnownLine{"** NO_CONNECTION **", LineMeaning::NoClient},
    KnownLine{"Pipe Created", LineMeaning::PipeCreated},
    KnownLine{"Read Pipe Broken", LineMeaning::ReadBroken},
    KnownLine{") Connected", LineMeaning::Accepted},
    KnownLine{") Pipe connected", LineMeaning::Connected},
    KnownLine{"port not served", LineMeaning::GivenUp},
    KnownLine{"CommandProcessThread() started", LineMeaning::Started},
    KnownLine{"CommandProcessThread() cannot run", LineMeaning::CannotRun},
    KnownLine{"no download can end", LineMeaning::GivenUp},
    KnownLine{"Pipe cannot be restricted", LineMeaning::GivenUp},
    KnownLine{"could not be started", LineMeaning::GivenUp},
    KnownLine{"thread cannot be started", LineMeaning::GivenUp},
};

LineMeaning MeaningOf(const char* text)
{
    for (const KnownLine& known : KnownLines) {
        if (std::strstr(text, known.part) != nullptr) {
            return known.meaning;
        }
    }
    return LineMeaning::None;
}

// These say what they mean in their arguments.
bool IsOpenFormat(const char* format)
{
    return std::strcmp(format, "%s") == 0 || std::strstr(format, "NotifyState(%s)") != nullptr;
}

} // namespace

bool Host::SendToPort(PortAddress address, CCommunicationDriver* source, std::span<const std::uint8_t> payload)
{
    {
        const OwnMemory own;
        m_account.OnDelivered(address.deviceType, address.port, payload);
    }
    return table.SendToPort(address, source, payload);
}

void Host::SendToPorts(std::int32_t port, CCommunicationDriver* source, std::span<const std::uint8_t> payload)
{
    {
        const OwnMemory own;
        m_account.OnDelivered(-1, port, payload);
    }
    table.SendToPorts(port, source, payload);
}

void Host::PacketCompleted(PortAddress address)
{
    m_account.OnPacketCompleted(address.deviceType, address.port);
    table.PacketCompleted(address);
}

void Host::SignalAllPorts()
{
    table.SignalAllPorts();
}

bool CountedTransport::IsReady()
{
    {
        const OwnMemory own;
        m_account.OnReadinessAsked();
    }
    const bool wasBetween = m_account.IsBetween();
    const std::uint64_t ends = m_account.Ends();
    const bool isReady = m_inner.IsReady();
    if (isReady && wasBetween && m_account.IsBetween() && m_account.Ends() == ends) {
        const OwnMemory own;
        m_account.OnReadyBetween();
    }
    return isReady;
}

void CountedTransport::Send(std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length)
{
    {
        const OwnMemory own;
        m_account.OnSubmitted(x, y, {data, length}, true);
    }
    m_inner.Send(x, y, data, length);
}

TraceReader::TraceReader(Account& account) : m_account(account)
{
    for (const std::int32_t device : {-1, 0, 3, 5, 200}) {
        m_options.Set(device, {EveryTrace, 100});
    }
    InstallTraceSink(*this);
}

TraceReader::~TraceReader()
{
    RemoveTraceSink(*this);
}

bool TraceReader::HasGivenUp() const
{
    return m_hasGivenUp || std::any_of(m_unread.begin(), m_unread.end(),
                                       [](const auto& port) { return port.second >= VisitsInVain; });
}

void TraceReader::ChangeSettings()
{
    const Watched watched;
    const auto device = static_cast<std::int32_t>(Random(300)) - 1;
    m_options.Set(
        device, {static_cast<std::uint32_t>(Random(2)) * EveryTrace, 1 + static_cast<std::uint32_t>(Random(100))});
    if (Random(8) == 0) {
        m_options.ResetAll();
    }
}

// All lines are wanted: the account reads them.
std::uint32_t TraceReader::EffectiveMask(std::int32_t /*device*/, std::uint32_t classMask) const noexcept
{
    return classMask;
}

void TraceReader::Write(std::int32_t device, std::uint32_t /*effectiveMask*/, const char* format,
                        std::va_list arguments) noexcept
{
    const OwnMemory own;
    // Not zeroed: that would cost more than the line.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
    std::array<char, 2056> line;
    line[0] = '\0';
    std::vsnprintf(line.data(), line.size(), format, arguments);
    Note(line.data());
    Read(device, format, line.data());
    Point("Trace");
}

bool TraceReader::Dump(std::int32_t device, std::uint32_t effectiveMask, const std::uint8_t* data,
                       std::uint32_t length, bool hexOnly, std::string& out)
{
    const TraceOptions options = m_options.Find(device);
    if ((options.mask & effectiveMask) == 0) {
        return false;
    }
    AppendPacketText(data, length, options.maxPacketLength, hexOnly, out);
    return true;
}

// A format is looked at once: a literal keeps its place.
TraceReader::Format& TraceReader::Known(const char* format)
{
    Format& known = m_formats[reinterpret_cast<std::uintptr_t>(format) / 8 % m_formats.size()];
    if (known.text != format) {
        known = {format, IsOpenFormat(format), MeaningOf(format)};
    }
    return known;
}

void TraceReader::Read(std::int32_t device, const char* format, const char* line)
{
    const Format& known = Known(format);
    switch (known.isOpen ? MeaningOf(line) : known.meaning) {
    case LineMeaning::None: return;
    case LineMeaning::Loss: return m_account.OnLoss();
    case LineMeaning::LinkOpened: return m_account.OnLinkOpened();
    case LineMeaning::Opened: return m_account.OnConnected();
    case LineMeaning::Closed: return m_account.OnDisconnected();
    case LineMeaning::TransferFailed: return m_account.OnTransferFailed();
    case LineMeaning::Ignored: return m_account.OnIgnored(device);
    case LineMeaning::NotConnected: return m_account.OnNotConnected();
    case LineMeaning::NoClient: return m_account.OnNoClient(device);
    case LineMeaning::PipeCreated: m_brokenReads[device] = 0; return m_account.OnPipeCreated(device);
    case LineMeaning::ReadBroken:
        if (++m_brokenReads[device] > 1 && MayLatencyBeJudged()) {
            Fault("Read Pipe Broken is told twice of one pipe");
        }
        return;
    case LineMeaning::GivenUp: m_hasGivenUp = true; return;
    case LineMeaning::Started: m_hasStarted = true; return;
    // Of a thread that has begun its work no single call is the end.
    case LineMeaning::CannotRun: m_hasGivenUp = m_hasGivenUp || !m_hasStarted; return;
    case LineMeaning::Accepted: ++m_unread[device]; return;
    case LineMeaning::Connected: m_unread[device] = 0; return;
    }
}

} // namespace sim
