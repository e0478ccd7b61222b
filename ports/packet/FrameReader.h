// Packets out of a stream of bytes in any cut. Portable.
#pragma once

#include "ports/packet/ReceiveBuffer.h"
#include "ports/packet/WireFormat.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

/// Keeps the bytes of a packet until the packet is whole, and drops what stands between packets. One thread.
class FrameReader
{
public:
    /// Appends a copy of `bytes`.
    void Append(std::span<const std::uint8_t> bytes) { m_buffer.Append(bytes); }

    /// Calls `handle(const wire::Frame&)` for each whole packet, in order; the frame's payload is valid during the
    /// call. `handle` may throw and must not call this reader.
    template <class Handler>
    void TakeFrames(const Handler& handle)
    {
        while (m_buffer.Size() >= wire::LeastToLookAt) {
            if (!SyncToFrame() || m_buffer.Size() < wire::FrameOverhead) {
                return; // too little is left; more bytes may complete it
            }
            const std::optional<wire::Frame> frame = wire::ParseFrame(m_buffer.Bytes());
            if (!frame) {
                return; // the partial packet stays at the front
            }
            // Before it is handled: a packet whose handling throws must not be handled, and throw, again and
            // again.
            m_buffer.Consume(frame->Length());
            handle(*frame);
            SyncToFrame();
        }
    }

    /// Bytes that wait for the rest of their packet.
    std::size_t Buffered() const noexcept { return m_buffer.Size(); }

private:
    /// Drops what stands before the next "##", everything when there is none: a lone '#' at the end is dropped,
    /// too. Returns whether a pair is at the front now.
    bool SyncToFrame() noexcept
    {
        const std::optional<std::size_t> at = wire::FindSync(m_buffer.Bytes());
        m_buffer.Consume(at.value_or(m_buffer.Size()));
        return at.has_value();
    }

    ReceiveBuffer m_buffer;
};
