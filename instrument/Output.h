// Packets on their way from the simulated instrument to the router: delayed, numbered as they leave, joined into
// few writes or cut into many. Portable.
#pragma once

#include "instrument/Script.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <span>

namespace instrument {

class Output
{
public:
    enum class Order { Nothing, Write, Vanish, Return };
    using Payload = std::optional<std::span<const std::uint8_t>>;

    /// `script` must outlive the output; only what it says about all packets counts.
    explicit Output(const Script& script)
        : m_script(script), m_random(script.seed), m_nextNumber(script.firstNumber)
    {
    }

    /// Drops everything on its way and numbers from the first number again.
    void Restart()
    {
        m_delayed.clear();
        m_stream.clear();
        m_nextNumber = m_script.firstNumber;
    }

    /// One packet of type 1, `plan.delay` from now; of the plan only what is about one packet counts.
    /// Without a payload there is no packet, only what the plan puts around it.
    void Send(const ResponsePlan& plan, Address to, Payload payload, Time now);

    /// See Engine::Take. What is due by `now` is joined as far as the plans allow; Vanish drops what is not due.
    Order Take(Time now, Bytes& bytes);

    /// When Take may give something; Time::max(): not before the next Send.
    Time NextDue() const
    {
        const Time due = m_stream.empty() ? Time::max() : m_stream.front().due;
        return m_return.value_or(m_delayed.empty() ? due : std::min(due, m_delayed.begin()->first));
    }

    /// From Order::Vanish until Order::Return.
    bool IsAway() const noexcept { return m_return.has_value(); }
    bool IsEmpty() const noexcept { return m_delayed.empty() && m_stream.empty(); }

private:
    /// Bytes that leave in one go, and then maybe the instrument. Pieces leave in their order.
    struct Piece
    {
        Bytes bytes{};
        Time due{};
        Time gap{};           // at least this long after the piece before it
        std::size_t room = 0; // more packets may be put to its end; with the last of them it is due at once
        std::optional<Vanishing> vanish{};
    };

    static constexpr std::size_t AnyNumber = SIZE_MAX;

    void EmitDue(Time now);
    void Emit(const ResponsePlan& plan, Address to, Payload payload, Time now);
    Bytes Compose(const ResponsePlan& plan, Address to, Payload payload);
    Bytes Garbage(std::size_t count);
    void Queue(const ResponsePlan& plan, Bytes bytes, Time now);
    void QueueJoined(const ResponsePlan& plan, Bytes bytes, Time now);

    const Script& m_script;
    std::minstd_rand m_random;
    std::uint8_t m_nextNumber;
    std::optional<Time> m_return; // when it comes back; Time::max(): never; none: it is not away
    /// Emit packets when they are due, those of the same time in order of arrival.
    std::multimap<Time, std::function<void(Time due)>> m_delayed;
    std::deque<Piece> m_stream;
};

} // namespace instrument
