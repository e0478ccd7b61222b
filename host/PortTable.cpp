#include "host/PortTable.h"

#include "ports/CCDevicePortPipe.h"

PortTable::PortTable() = default;

PortTable::~PortTable()
{
    DeleteAllPorts();
}

std::uint64_t PortTable::KeyOf(PortAddress address) noexcept
{
    return (std::uint64_t{static_cast<std::uint32_t>(address.deviceType)} << 32) |
           static_cast<std::uint32_t>(address.port);
}

CCDevicePortPipe* PortTable::FindLocked(PortAddress address) const noexcept
{
    const auto found = m_ports.find(KeyOf(address));
    return found != m_ports.end() ? found->second.get() : nullptr;
}

CCDevicePortPipe* PortTable::FindPort(PortAddress address) const noexcept
{
    const win32::SharedScope scope(m_lock);
    return FindLocked(address);
}

void PortTable::AddPort(PortAddress address, std::unique_ptr<CCDevicePortPipe> pipe)
{
    const win32::ExclusiveScope scope(m_lock);
    // try_emplace leaves `pipe` alone when the entry exists; the caller's argument then destroys it, after the
    // lock.
    m_ports.try_emplace(KeyOf(address), std::move(pipe));
}

std::unique_ptr<CCDevicePortPipe> PortTable::RemovePort(PortAddress address) noexcept
{
    const win32::ExclusiveScope scope(m_lock);
    const auto found = m_ports.find(KeyOf(address));
    if (found == m_ports.end()) {
        return nullptr;
    }
    std::unique_ptr<CCDevicePortPipe> pipe = std::move(found->second);
    m_ports.erase(found);
    return pipe;
}

void PortTable::DeleteAllPorts() noexcept
{
    Ports ports;
    {
        const win32::ExclusiveScope scope(m_lock);
        ports.swap(m_ports);
    }
    // All at once, so that a flush limit counts for all of them together.
    for (const auto& entry : ports) {
        if (!entry.second->IsStopping()) {
            entry.second->BeginStop();
        }
    }
}

void PortTable::BeginStopAllPorts(DWORD flushLimitMs) noexcept
{
    const win32::SharedScope scope(m_lock);
    for (const auto& entry : m_ports) {
        entry.second->BeginStop(flushLimitMs);
    }
}

bool PortTable::SendToPort(PortAddress address, CCommunicationDriver* source,
                           std::span<const std::uint8_t> payload)
{
    const win32::SharedScope scope(m_lock);
    CCDevicePortPipe* const pipe = FindLocked(address);
    if (pipe != nullptr && !payload.empty()) {
        pipe->Send(source, payload);
    }
    return pipe != nullptr;
}

void PortTable::SendToPorts(std::int32_t port, CCommunicationDriver* source, std::span<const std::uint8_t> payload)
{
    const win32::SharedScope scope(m_lock);
    for (const auto& [key, pipe] : m_ports) {
        if (static_cast<std::int32_t>(key) == port) {
            pipe->Send(source, payload);
        }
    }
}

void PortTable::PacketCompleted(PortAddress address) noexcept
{
    const win32::SharedScope scope(m_lock);
    if (CCDevicePortPipe* const pipe = FindLocked(address); pipe != nullptr) {
        pipe->PacketCompleted();
    }
}

void PortTable::SignalAllPorts() noexcept
{
    const win32::SharedScope scope(m_lock);
    for (const auto& entry : m_ports) {
        entry.second->RequestPipeRecreate();
    }
}
