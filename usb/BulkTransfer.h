// One transfer at a time on an endpoint, as an object that keeps alive what the driver may touch.
#pragma once

#include "usb/CCyUSBEndPoint.h"
#include "usb/Transfer.h"
#include "win32/Event.h"

#include <cstdint>
#include <memory>
#include <span>

namespace usb {

/// Has one event for all its transfers, to be put into a wait list once. A transfer that was aborted lives on at
/// its endpoint until the driver releases it; its late completion sets the event too. So:
///
///     the event is signalled:  ResetEvent(); if (HasEnded()) Finish(length);
///
/// where HasEnded is false when nothing is pending, and when it is still pending and the end of another has
/// set the event. A start that Windows refuses sets the event and makes Finish fail with the reason. One thread.
/// Abort (or Finish) before the endpoint's device is closed.
class BulkTransfer
{
public:
    BulkTransfer() : m_event(win32::Event::Kind::ManualReset) {}
    ~BulkTransfer() { Abort(); }
    BulkTransfer(const BulkTransfer&) = delete;
    BulkTransfer& operator=(const BulkTransfer&) = delete;

    /// Manual reset; the same for the object's whole life.
    HANDLE EventHandle() const noexcept { return m_event.Get(); }
    void ResetEvent() const noexcept { m_event.Reset(); }

    /// Writes `bytes`, which `packet` owns and which is kept until the next start. Only while nothing is pending.
    /// False when the device is closed.
    bool BeginWrite(CCyUSBEndPoint& endpoint, PayloadOwner packet, std::span<const std::uint8_t> bytes);

    /// Reads at most `length` bytes into a buffer of its own, which is allocated with the first read. Only while
    /// nothing is pending. False when the device is closed.
    bool BeginRead(CCyUSBEndPoint& endpoint, std::uint32_t length);

    /// True from a start to Finish or Abort.
    bool IsUnderWay() const noexcept { return m_endpoint != nullptr; }

    /// True when there is a result for Finish to take.
    bool HasEnded() const noexcept { return IsUnderWay() && m_transfer->HasCompleted(); }

    /// Takes the result; `length` gets the bytes transferred. False when the transfer failed; GetLastError() is
    /// then ERROR_GEN_FAILURE if only the driver's statuses tell so (they are kept by the endpoint). Only when
    /// HasEnded.
    bool Finish(std::uint32_t& length);

    /// What the last read brought, `length` bytes of it, with space for one byte after the longest read. Valid
    /// until the next start or Abort.
    std::span<std::uint8_t> Received() noexcept
    {
        return m_transfer ? std::span<std::uint8_t>(m_transfer->buffer) : std::span<std::uint8_t>();
    }

    /// Gives the transfer up without telling the driver: for when its endpoint was aborted already. A next one may
    /// be started at once. Harmless when nothing is pending.
    void Abandon() noexcept;

    /// Aborts the endpoint, then Abandon. Without a pending transfer the endpoint is left alone.
    void Abort() noexcept;

private:
    Transfer& Renew();
    bool Begin(CCyUSBEndPoint& endpoint, std::uint8_t* buffer, std::uint32_t length);

    win32::Event m_event;
    std::unique_ptr<Transfer> m_transfer; // null before the first start and after one was left to an endpoint
    CCyUSBEndPoint* m_endpoint = nullptr; // of the pending transfer
};

} // namespace usb
