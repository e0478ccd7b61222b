// In place of ports/CCDevicePortPipe.h for the model of the port table: the calls that the table makes, of a port
// that knows whether it is alive and has no thread.
#pragma once

#include "tests/relacy/Relacy.h"

#include "win32/Windows.h"

class CCommunicationDriver;

class CCDevicePortPipe
{
public:
    explicit CCDevicePortPipe(rl::var<int>& alive) : m_alive(alive) { m_alive(RL_INFO) = 1; }
    ~CCDevicePortPipe() { m_alive(RL_INFO) = 0; }
    CCDevicePortPipe(const CCDevicePortPipe&) = delete;
    CCDevicePortPipe& operator=(const CCDevicePortPipe&) = delete;

    void Send(CCommunicationDriver*, std::span<const std::uint8_t>) { Use(); }
    void PacketCompleted() noexcept { Use(); }
    void RequestPipeRecreate() noexcept { Use(); }
    void BeginStop(DWORD = 0) noexcept { Use(); }
    bool IsStopping() const noexcept { return false; }

private:
    // The call takes time: the table may change meanwhile.
    void Use() noexcept
    {
        RL_ASSERT(m_alive(RL_INFO) == 1);
        m_progress.store(1, std::memory_order_relaxed);
        RL_ASSERT(m_alive(RL_INFO) == 1);
    }

    rl::var<int>& m_alive; // the model's; outlives the port
    std::atomic<int> m_progress{0};
};
