// Packets on their way from the simulated instrument to the router: delayed, numbered as they leave, joined into
// few writes or cut into many. Portable.
#pragma once

#include "instrument/Script.h"

#include <algorithm>
#include <cstdint>
#include <deque>
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

    /// What is due by `now`, joined as far as the plans allow. Write: `bytes` holds it and nothing else.
    /// Vanish: everything still on its way is dropped. Then comes Return, if anything.
    Order Take(Time now, Bytes& bytes);

    /// When Take may give something; Time::max(): not before the next Send.
    Time NextDue() const;

    /// From Order::Vanish until Order::Return.
    bool IsAway() const noexcept { return m_return.has_value(); }
    bool IsEmpty() const noexcept { return m_delayed.empty() && m_stream.empty(); }

private:
    /// A packet that is not due yet.
    struct Delayed
    {
        ResponsePlan plan;
        Address to;
        std::optional<Bytes> payload;
    };

    /// Bytes that leave in one go, and then maybe the instrument. Pieces leave in their order.
    struct Piece
    {
        Bytes bytes;
        Time due{};
        Time gap{};                     // at least this long after the piece before it
        std::size_t missingPackets = 0; // is due at once when so many more are in it
        bool joinable = false;          // more packets may be put to its end
        std::optional<Vanishing> vanish;
    };

    void EmitDue(Time now);
    void Emit(const ResponsePlan& plan, Address to, Payload payload, Time now);
    void Compose(const ResponsePlan& plan, Address to, Payload payload);
    void AppendGarbage(std::size_t count);
    std::uint8_t TakeNumber(const ResponsePlan& plan);
    void Queue(const ResponsePlan& plan, Time now);
    void QueueJoined(const ResponsePlan& plan, Time now);
    Piece& AddPiece(std::span<const std::uint8_t> bytes, Time now);

    const Script& m_script;
    std::minstd_rand m_random;
    std::uint8_t m_nextNumber;
    std::optional<Time> m_return;           // when it comes back; Time::max(): never; none: it is not away
    std::multimap<Time, Delayed> m_delayed; // by the time they are due; of the same time in order of arrival
    std::deque<Piece> m_stream;
    Bytes m_composed; // the packet in the making; kept for its room
};

} // namespace instrument
