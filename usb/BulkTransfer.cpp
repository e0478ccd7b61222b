#include "usb/BulkTransfer.h"

#include <utility>

namespace usb {

Transfer& BulkTransfer::Renew()
{
    if (!m_transfer) {
        m_transfer = std::make_unique<Transfer>();
    }
    m_transfer->overlapped = OVERLAPPED{};
    m_transfer->pending = false;
    m_transfer->overlapped.hEvent = m_event.Get();
    return *m_transfer;
}

bool BulkTransfer::BeginWrite(CCyUSBEndPoint& endpoint, PayloadOwner packet, std::span<const std::uint8_t> bytes)
{
    Renew().packet = std::move(packet);
    // The driver's interface has one buffer for both directions; in this one it only reads.
    return Begin(endpoint, const_cast<std::uint8_t*>(bytes.data()), static_cast<std::uint32_t>(bytes.size()));
}

bool BulkTransfer::BeginRead(CCyUSBEndPoint& endpoint, std::uint32_t length)
{
    // One byte more than is read: the reader may put a terminator after a full block.
    std::vector<std::uint8_t>& buffer = Renew().buffer;
    buffer.resize(std::size_t{length} + 1);
    return Begin(endpoint, buffer.data(), length);
}

bool BulkTransfer::Begin(CCyUSBEndPoint& endpoint, std::uint8_t* buffer, std::uint32_t length)
{
    // The start resets the event.
    m_transfer->block.reset(endpoint.BeginDataXfer(buffer, length, &m_transfer->overlapped));
    if (!m_transfer->block) {
        return false;
    }
    m_endpoint = &endpoint;
    m_transfer->pending = m_transfer->block->IsPending();
    if (!m_transfer->pending) {
        // A refused request never sets the event; whether one does that was complete at once is not promised.
        // Unset, the end of a good write would be waited for and the write be aborted.
        m_event.Set();
    }
    return true;
}

bool BulkTransfer::Finish(std::uint32_t& length)
{
    // Without the byte after the longest read; a write has no buffer of its own.
    length = m_transfer->buffer.empty() ? 0 : static_cast<std::uint32_t>(m_transfer->buffer.size() - 1);
    RequestBlock* const context = m_transfer->block.release();
    std::uint8_t* const buffer = m_transfer->buffer.data();
    const bool worked = m_endpoint->FinishDataXfer(buffer, length, &m_transfer->overlapped, context);
    if (!worked && m_endpoint->LastError() == ERROR_IO_INCOMPLETE) {
        m_transfer->block.reset(context); // asked too early: it is still pending
        return false;
    }
    m_transfer->pending = false;
    m_endpoint = nullptr;
    return worked;
}

void BulkTransfer::Abandon() noexcept
{
    if (m_endpoint == nullptr) {
        return;
    }
    CCyUSBEndPoint& endpoint = *std::exchange(m_endpoint, nullptr);
    if (m_transfer->HasCompleted()) {
        m_transfer->block.reset();
        endpoint.Abandoned().Sweep();
    } else {
        endpoint.Abandon(std::move(m_transfer));
    }
}

void BulkTransfer::Abort() noexcept
{
    if (m_endpoint != nullptr) {
        m_endpoint->Abort();
        Abandon();
    }
}

} // namespace usb
