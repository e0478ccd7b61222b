#include "usb/Transfer.h"

#include <utility>

namespace usb {

AbandonedTransfers::~AbandonedTransfers()
{
    Sweep();
    m_first.release();
}

void AbandonedTransfers::Add(std::unique_ptr<Transfer> transfer) noexcept
{
    transfer->next = std::move(m_first);
    m_first = std::move(transfer);
    ++m_count;
    Sweep();
}

void AbandonedTransfers::AddAll(AbandonedTransfers& other) noexcept
{
    while (std::unique_ptr<Transfer> transfer = std::move(other.m_first)) {
        other.m_first = std::move(transfer->next);
        transfer->next = std::move(m_first);
        m_first = std::move(transfer);
        ++m_count;
    }
    other.m_count = 0;
}

void AbandonedTransfers::Sweep() noexcept
{
    for (std::unique_ptr<Transfer>* link = &m_first; *link;) {
        if ((*link)->HasCompleted()) {
            *link = std::exchange((*link)->next, nullptr);
            --m_count;
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

void AbandonedTransfers::WaitForAll(DWORD milliseconds) noexcept
{
    // Their events are of no use: one event serves many transfers. So the records themselves are looked at.
    const ULONGLONG end = ::GetTickCount64() + milliseconds;
    for (Sweep(); m_first && ::GetTickCount64() < end; Sweep()) {
        ::Sleep(1);
    }
}

bool AbandonedTransfers::HasControl(std::uint32_t code) const noexcept
{
    for (const Transfer* transfer = m_first.get(); transfer != nullptr; transfer = transfer->next.get()) {
        if (transfer->control == code) {
            return true;
        }
    }
    return false;
}

void AbandonedTransfers::ForgetControls() noexcept
{
    for (Transfer* transfer = m_first.get(); transfer != nullptr; transfer = transfer->next.get()) {
        transfer->control = 0;
    }
}

bool AbandonedTransfers::IsFull() noexcept
{
    if (m_count >= Limit) {
        Sweep();
    }
    return m_count >= Limit;
}

} // namespace usb
