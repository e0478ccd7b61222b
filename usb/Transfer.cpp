#include "usb/Transfer.h"

#include <utility>

namespace usb {

void AbandonedTransfers::Add(std::unique_ptr<Transfer> transfer) noexcept
{
    transfer->next = std::move(m_first);
    m_first = std::move(transfer);
    Sweep();
}

void AbandonedTransfers::Sweep() noexcept
{
    for (std::unique_ptr<Transfer>* link = &m_first; *link;) {
        if ((*link)->HasCompleted()) {
            *link = std::exchange((*link)->next, nullptr);
        } else {
            link = &(*link)->next;
        }
    }
}

void AbandonedTransfers::CancelAll(HANDLE device) noexcept
{
    for (Transfer* transfer = m_first.get(); transfer != nullptr; transfer = transfer->next.get()) {
        ::CancelIoEx(device, &transfer->overlapped);
    }
}

void AbandonedTransfers::WaitForAll(std::chrono::milliseconds patience) noexcept
{
    // Their events are of no use: one event serves many transfers. So the records themselves are looked at.
    const ULONGLONG end = ::GetTickCount64() + static_cast<ULONGLONG>(patience.count());
    for (Sweep(); m_first && ::GetTickCount64() < end; Sweep()) {
        ::Sleep(1);
    }
    m_first.release();
}

std::size_t AbandonedTransfers::Count() const noexcept
{
    std::size_t count = 0;
    for (const Transfer* transfer = m_first.get(); transfer != nullptr; transfer = transfer->next.get()) {
        ++count;
    }
    return count;
}

} // namespace usb
