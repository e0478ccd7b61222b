// Everything of one request that the driver may touch until it has completed it.
#pragma once

#include "usb/RequestBlock.h"
#include "win32/Windows.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace usb {

/// Sole owner of an object of any type: what holds the bytes of a packet while they are written.
using PayloadOwner = std::unique_ptr<void, void (*)(void*)>;

template <class Owned>
PayloadOwner Keep(std::unique_ptr<Owned> owned)
{
    return PayloadOwner(owned.release(), [](void* pointer) { delete static_cast<Owned*>(pointer); });
}

/// Does not move once started.
struct Transfer
{
    OVERLAPPED overlapped{};
    bool pending = false;                       // accepted by the driver, result not taken
    std::uint32_t control = 0;                  // an I/O control's code; 0: a transfer
    std::unique_ptr<RequestBlock> block;        // of a transfer
    PayloadOwner packet{nullptr, [](void*) {}}; // owns what is written
    std::vector<std::uint8_t> buffer;           // takes what is read; an I/O control's data
    std::unique_ptr<Transfer> next;             // in the list of abandoned transfers

    /// True once the driver has released everything here. Does not ask the kernel. The macro's page allows it
    /// only after a start that said ERROR_IO_PENDING ("HasOverlappedIoCompleted macro"). Windows promises that the
    /// thread that started the request sees record and event change together; another thread may see the record
    /// first, when data and byte count are written and only the event, which is not part of this memory, is still
    /// to be set.
    bool HasCompleted() const noexcept { return !pending || HasOverlappedIoCompleted(&overlapped); }
};

/// Requests that were given up and not yet seen complete. They wait here, whole, so that the driver never writes
/// into memory that the process has given away; each is freed once its completion is seen. One thread at a time.
class AbandonedTransfers
{
public:
    /// With so many kept by the driver no further transfer is started, so that a driver that ignores every abort
    /// cannot take the process's memory bit by bit.
    static constexpr std::size_t Limit = 64;

    AbandonedTransfers() = default;
    /// Gives up for good what the driver still keeps: its memory stays allocated for the rest of the process,
    /// which is the price of never having it written to in other hands.
    ~AbandonedTransfers();
    AbandonedTransfers(const AbandonedTransfers&) = delete;
    AbandonedTransfers& operator=(const AbandonedTransfers&) = delete;

    /// Takes `transfer` over and frees what has completed meanwhile, `transfer` included.
    void Add(std::unique_ptr<Transfer> transfer) noexcept;

    /// Takes over all of `other`.
    void AddAll(AbandonedTransfers& other) noexcept;

    /// Frees what has completed.
    void Sweep() noexcept;

    /// Asks Windows to cancel all that is left.
    void CancelAll(HANDLE device) noexcept;

    /// Waits until all have completed, at most `milliseconds`.
    void WaitForAll(DWORD milliseconds) noexcept;

    /// Whether the driver keeps an I/O control of that code, as of the last sweep.
    bool HasControl(std::uint32_t code) const noexcept;

    /// Makes HasControl false: the device was closed, and another handle's requests stand for themselves.
    void ForgetControls() noexcept;

    /// Whether the driver keeps the limit or more; sweeps first when it seems so.
    bool IsFull() noexcept;

    std::size_t Count() const noexcept { return m_count; }

private:
    std::unique_ptr<Transfer> m_first; // linked by themselves: giving up a transfer cannot fail for want of memory
    std::size_t m_count = 0;
};

} // namespace usb
