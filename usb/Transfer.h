// Everything of one transfer that the driver may touch until it has completed the request.
#pragma once

#include "usb/RequestBlock.h"
#include "win32/Windows.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace usb {

/// Sole owner of an object of any type: what holds the bytes of a packet while they are written.
using Keeper = std::unique_ptr<void, void (*)(void*)>;

template <class Owned>
Keeper Keep(std::unique_ptr<Owned> owned)
{
    return Keeper(owned.release(), [](void* pointer) { delete static_cast<Owned*>(pointer); });
}

/// Does not move once started.
struct Transfer
{
    OVERLAPPED overlapped{};
    std::unique_ptr<RequestBlock> block;  // null: nothing under way
    Keeper packet{nullptr, [](void*) {}}; // holds what is written
    std::vector<std::uint8_t> buffer;     // takes what is read
    std::unique_ptr<Transfer> next;       // in the list of abandoned transfers

    /// True once the driver has let go of everything here. Does not ask the kernel.
    bool HasCompleted() const noexcept
    {
        return !block || block->refusal || HasOverlappedIoCompleted(&overlapped);
    }
};

/// Transfers that were aborted and not yet seen complete. They wait here, whole, so that the driver never writes
/// into memory that the process has given away; each is freed once its completion is seen. Used by the thread that
/// uses the endpoint.
class AbandonedTransfers
{
public:
    AbandonedTransfers() = default;
    ~AbandonedTransfers() { WaitForAll(std::chrono::milliseconds(0)); }
    AbandonedTransfers(const AbandonedTransfers&) = delete;
    AbandonedTransfers& operator=(const AbandonedTransfers&) = delete;

    /// Takes `transfer` over and frees what has completed meanwhile, `transfer` included.
    void Add(std::unique_ptr<Transfer> transfer) noexcept;

    /// Frees what has completed.
    void Sweep() noexcept;

    /// Asks Windows to cancel all that is left.
    void CancelAll(HANDLE device) noexcept;

    /// Waits until all have completed. What a driver has not let go of by then is given up for good: its memory
    /// stays allocated for the rest of the process, which is the price of never having it written to in other hands.
    void WaitForAll(std::chrono::milliseconds patience) noexcept;

    std::size_t Count() const noexcept;

private:
    std::unique_ptr<Transfer> m_first; // linked by themselves: giving up a transfer cannot fail for want of memory
};

} // namespace usb
