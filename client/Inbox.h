// Messages that have come and were not received yet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

namespace clientlib {

/// Portable, without a lock of its own. A message is shared with the thread whose callback judges it.
class Inbox
{
public:
    using Bytes = std::vector<std::uint8_t>;
    using Message = std::shared_ptr<const Bytes>;
    using Queue = std::deque<Message>;

    /// Where a message goes.
    struct Room
    {
        void* buffer;
        std::uint32_t capacity;
        std::uint32_t& length;
    };

    /// At most `limit` messages of each kind.
    explicit Inbox(std::size_t limit) : m_limit(limit) {}

    Queue fresh;       // not judged yet: new, in the order in which they came
    Queue expected;    // for receive and for the request that waits
    Queue unsolicited; // for receive_unsolicited

    bool IsFull() const noexcept { return fresh.size() + expected.size() >= m_limit; }
    bool IsEmpty() const noexcept { return fresh.empty() && expected.empty() && unsolicited.empty(); }

    /// Moves the first message; returns how many unsolicited ones were dropped to make space.
    std::size_t SetAside(Queue& from)
    {
        unsolicited.push_back(std::move(from.front()));
        from.pop_front();
        if (unsolicited.size() <= m_limit) {
            return 0;
        }
        unsolicited.pop_front();
        return 1;
    }
    void Expect(Queue& from)
    {
        expected.push_back(std::move(from.front()));
        from.pop_front();
    }
    /// False when the first message is longer than the buffer; it stays then.
    static bool Take(Queue& from, Room room)
    {
        const Bytes& message = *from.front();
        room.length = static_cast<std::uint32_t>(message.size());
        if (message.size() > room.capacity) {
            return false;
        }
        if (!message.empty()) {
            std::memcpy(room.buffer, message.data(), message.size());
        }
        from.pop_front();
        return true;
    }
    void DiscardExpected() noexcept
    {
        fresh.clear();
        expected.clear();
    }

private:
    const std::size_t m_limit;
};

} // namespace clientlib
