// Messages that are to be written, and whether the router has read the ones before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <utility>
#include <vector>

namespace clientlib {

/// Portable, without a lock of its own. The router reads in byte mode: a message that is written before it has
/// read the one before is merged with it, which only a raw port allows.
class Outbox
{
public:
    using Bytes = std::vector<std::uint8_t>;

    Outbox(std::size_t limit, bool isRaw) : m_limit(limit), m_isRaw(isRaw) {}

    bool IsFull() const noexcept { return m_queue.size() >= m_limit; }
    std::size_t Waiting() const noexcept { return m_queue.size(); }
    void Push(std::span<const std::uint8_t> message) { m_queue.emplace_back(message.begin(), message.end()); }

    /// Whether a message of a call would be written too early.
    bool MustWait() const noexcept { return !m_queue.empty() || (m_isUnread && !m_isRaw); }
    bool HasUnread() const noexcept { return m_isUnread || !m_queue.empty(); }
    /// Whether the sender has to wait for the router before it writes the next message.
    bool MustFlush() const noexcept { return m_isUnread && (m_queue.empty() || !m_isRaw); }
    bool HasWork() const noexcept { return !m_queue.empty() || (m_isUnread && (!m_isRaw || m_flushes != 0)); }
    /// Whether a message of the queue is flushed at once, in the same step.
    bool IsFlushedAtOnce() const noexcept { return !m_isRaw; }

    /// The first message of the queue, on its way from now on.
    Bytes Next()
    {
        Bytes message = std::move(m_queue.front());
        m_queue.pop_front();
        ++m_unanswered;
        return message;
    }
    /// A message of a call was written.
    void OnWritten() noexcept
    {
        ++m_unanswered;
        m_isUnread = true;
    }
    void SetUnread(bool isUnread) noexcept { m_isUnread = isUnread; }
    void BeginFlush() noexcept { ++m_flushes; }
    void EndFlush() noexcept { --m_flushes; }

    /// Messages written since the last one that came.
    std::uint32_t Unanswered() const noexcept { return m_unanswered; }
    void OnMessage() noexcept { m_unanswered = 0; }
    void OnConnected() noexcept
    {
        m_unanswered = 0;
        m_isUnread = false;
    }
    /// Nothing is sent later than the client meant it.
    void Drop() noexcept { m_queue.clear(); }

private:
    const std::size_t m_limit;
    const bool m_isRaw;
    std::deque<Bytes> m_queue;
    std::uint32_t m_unanswered = 0;
    std::uint32_t m_flushes = 0; // calls that wait for the router
    bool m_isUnread = false;     // the router may not have read the last message
};

} // namespace clientlib
