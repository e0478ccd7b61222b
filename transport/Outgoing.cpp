#include "transport/Outgoing.h"

#include "trace/Trace.h"

#include <memory>
#include <new>
#include <utility>

namespace {

constexpr std::int32_t QueueLimit = 500;

} // namespace

void Outgoing::Submit(std::uint8_t packetType, std::uint8_t x, std::uint8_t y,
                      std::span<const std::uint8_t> payload, std::size_t length)
{
    if (m_bLimitQueue && m_CommandQueue.GetCount() >= QueueLimit) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::Submit() Maximum queue size reached, ignore all incomcing  requests");
        return;
    }
    if (!m_connection.IsOpen()) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::Submit() No connection, ignore all incomcing  requests");
        return;
    }
    const wire::Trailer trailer = wire::BuildTrailer(payload);
    const CCriticalSectionHelper lock(m_Lock);
    const wire::Header header = wire::BuildHeader(m_nNextPacketNumber, packetType, x, y, length);
    auto packet = std::make_unique<CSerialPortCommand>(header.data(), static_cast<std::int32_t>(header.size()),
                                                       true, false, payload.size() + wire::FrameOverhead);
    packet->Append(payload.data(), static_cast<std::int32_t>(payload.size()));
    packet->Append(trailer.data(), static_cast<std::int32_t>(trailer.size()));
    packet->SetAddress({wire::Coordinate(x), wire::Coordinate(y)});
    m_CommandQueue.Push(std::move(packet));
    ++m_nNextPacketNumber;
}

void Outgoing::SubmitOrDrop(std::uint8_t packetType, std::uint8_t x, std::uint8_t y,
                            std::span<const std::uint8_t> payload, std::size_t length) noexcept
{
    try {
        Submit(packetType, x, y, payload, length);
    } catch (const std::bad_alloc&) {
        // Dropped: there is no caller left to tell.
    }
}
