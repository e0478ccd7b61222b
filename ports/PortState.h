// What the threads of one port share.
#pragma once

#include "ports/packet/CCommandQueue.h"
#include "ports/packet/CCriticalSectionHelper.h"
#include "win32/MirroredEvent.h"
#include "win32/OnDemandEvent.h"

#include <atomic>
#include <cstdint>

/// Client packets that were handed to the transport and whose write has not begun yet. Any thread.
class PendingPackets
{
public:
    /// So many may be pending before the worker stops reading.
    static constexpr std::int32_t Maximum = 500;

    std::int32_t Add(std::int32_t count) noexcept
    {
        const CCriticalSectionHelper lock(m_PendingSection);
        return PendingCount += count;
    }
    void Reset() noexcept
    {
        const CCriticalSectionHelper lock(m_PendingSection);
        PendingCount = 0;
    }
    std::int32_t Count() noexcept { return Add(0); }
    bool MayRead() noexcept { return Count() < Maximum; }

private:
    win32::CriticalSection m_PendingSection;
    std::int32_t PendingCount GUARDED_BY(m_PendingSection) = 0;
};

/// Owned by the port, lent to its worker.
struct PortState
{
    win32::MirroredEvent StopEvent;
    win32::OnDemandEvent RecreateEvent{true};   // taken by the worker
    win32::OnDemandEvent ReadEnableEvent{true}; // taken by the worker
    CCommandQueue OutQueue;                     // device packets for the client; locks itself
    std::atomic<bool> IsPipeConnected{false};   // written by the worker, read by Send
    PendingPackets Pending;

    /// How often the instrument was found to be gone (any thread), and the same when the pipe was created
    /// (worker).
    std::atomic<std::uint32_t> connectionLosses{0};
    std::uint32_t lossesAtCreation = 0;
};
