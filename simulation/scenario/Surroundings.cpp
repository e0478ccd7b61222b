#include "simulation/scenario/Surroundings.h"

#include "simulation/kernel/Memory.h"
#include "simulation/kernel/Scheduler.h"
#include "trace/PacketText.h"
#include "trace/TraceMask.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace sim {

namespace {

bool Says(const char* line, const char* part)
{
    return std::strstr(line, part) != nullptr;
}

// After these something that was on its way may be gone.
bool IsLoss(const char* line)
{
    constexpr std::array<const char*, 6> lines = {"NotifyState(Not Connected)", "Command-sent failed",
                                                  "Reply-receive failed",       "abort previous Write operation",
                                                  "Write operation incomplete", "failed, reconnecting"};
    for (const char* const known : lines) {
        if (Says(line, known)) {
            return true;
        }
    }
    return false;
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

void Host::SignalAllPorts()
{
    table.SignalAllPorts();
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

void TraceReader::ChangeSettings()
{
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
    std::array<char, 2056> line;
    line[0] = '\0';
    std::vsnprintf(line.data(), line.size(), format, arguments);
    Note(line.data());
    Read(device, line.data());
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

void TraceReader::Read(std::int32_t device, const char* line)
{
    if (IsLoss(line)) {
        m_account.OnLoss();
    } else if (Says(line, "Packet ignored")) {
        m_account.OnIgnored(device);
    } else if (Says(line, "Submit() No connection")) {
        m_account.OnNotConnected();
    } else if (Says(line, "** NO_CONNECTION **")) {
        m_account.OnNoClient(device);
    } else if (Says(line, "Pipe Created")) {
        m_brokenReads[device] = 0;
    } else if (Says(line, "Read Pipe Broken") && ++m_brokenReads[device] > 1 && MayLatencyBeJudged()) {
        Fault("Read Pipe Broken is told twice of one pipe");
    }
}

} // namespace sim
