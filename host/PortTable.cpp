#include "host/PortTable.h"

#include "ports/CCDevicePortPipe.h"

PortTable::PortTable() = default;

PortTable::~PortTable()
{
    DeleteAllPorts();
}

std::uint64_t PortTable::KeyOf(std::int32_t deviceType, std::uint32_t port) noexcept
{
    return (std::uint64_t{static_cast<std::uint32_t>(deviceType)} << 32) | port;
}

CCDevicePortPipe* PortTable::FindLocked(std::int32_t deviceType, std::uint32_t port) const noexcept
{
    const auto found = m_ports.find(KeyOf(deviceType, port));
    return found != m_ports.end() ? found->second.get() : nullptr;
}

CCDevicePortPipe* PortTable::FindPort(std::int32_t deviceType, std::uint32_t port) const noexcept
{
    const win32::SharedScope scope(m_lock);
    return FindLocked(deviceType, port);
}

void PortTable::AddPort(std::int32_t deviceType, std::uint32_t port, std::unique_ptr<CCDevicePortPipe> pipe)
{
    const win32::ExclusiveScope scope(m_lock);
    // try_emplace leaves `pipe` alone when the entry exists; it then goes with the caller's argument, behind the lock.
    m_ports.try_emplace(KeyOf(deviceType, port), std::move(pipe));
}

std::unique_ptr<CCDevicePortPipe> PortTable::RemovePort(std::int32_t deviceType, std::uint32_t port) noexcept
{
    const win32::ExclusiveScope scope(m_lock);
    const auto found = m_ports.find(KeyOf(deviceType, port));
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

bool PortTable::SendToPort(std::int32_t deviceType, std::uint32_t port, CCommunicationDriver* source,
                           const std::uint8_t* data, std::uint32_t length)
{
    const win32::SharedScope scope(m_lock);
    CCDevicePortPipe* const pipe = FindLocked(deviceType, port);
    if (pipe != nullptr && length != 0) {
        pipe->Send(source, data, length);
    }
    return pipe != nullptr;
}

void PortTable::SendToPorts(std::uint32_t port, CCommunicationDriver* source, const std::uint8_t* data,
                            std::uint32_t length)
{
    const win32::SharedScope scope(m_lock);
    for (const auto& [key, pipe] : m_ports) {
        if (static_cast<std::uint32_t>(key) == port) {
            pipe->Send(source, data, length);
        }
    }
}

void PortTable::PacketCompleted(std::int32_t deviceType, std::uint32_t port) noexcept
{
    const win32::SharedScope scope(m_lock);
    if (CCDevicePortPipe* const pipe = FindLocked(deviceType, port); pipe != nullptr) {
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
