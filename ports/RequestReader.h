// Reads the client's messages, one read at a time.
#pragma once

#include "win32/OverlappedOperation.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

/// Used by the port's worker thread alone. The pipe given to Start must stay open until Finish or Cancel.
class RequestReader
{
public:
    using Message = std::span<const std::uint8_t>; // valid until the next Start

    /// `bufferSize` bytes bound a message; 0 or less, or no memory: there is no buffer and nothing is ever read.
    explicit RequestReader(std::int32_t bufferSize);

    bool HasBuffer() const noexcept { return m_buffer != nullptr; }

    /// Starts a read unless one is pending. A refusal is reported like a failed read if `reportRefusal`: Windows
    /// sets no event for it.
    void Start(HANDLE pipe, bool reportRefusal);

    /// Takes the result of the read; none when it failed, with the reason in GetLastError(). A message that was
    /// kept comes again.
    std::optional<Message> Finish(HANDLE pipe);

    /// Makes Finish give `message` again at the next pass, until the next Start: by design, while too many packets
    /// are pending, the last message is handed over again about every 100 ms.
    void KeepForRepeat(Message message) noexcept { m_keptLength = message.size(); }

    /// Forgets that a read was started, for a new client. One that is pending goes on: it may hold the first
    /// message.
    void ResetState() noexcept
    {
        m_isReading = false;
        m_keptLength = 0;
    }

    /// Cancels the read. The message that was read and not yet taken by Finish, before the cancel or in spite of
    /// it.
    std::optional<Message> Cancel();

    /// From Start to Finish. Meanwhile enabling the next read changes nothing.
    bool IsReading() const noexcept { return m_isReading; }
    HANDLE ReadEvent() const noexcept { return m_read.EventHandle(); }
    win32::Expectation ExpectRead() const noexcept
    {
        return m_keptLength > 0 ? win32::Expectation::Now : m_read.Expected();
    }

private:
    const std::size_t m_size;
    const std::unique_ptr<std::uint8_t[]> m_buffer;
    bool m_isReading = false;
    std::size_t m_keptLength = 0;      // of the message that is given again; 0 when there is none
    win32::OverlappedOperation m_read; // after the buffer: it cancels and waits before that is freed
};
