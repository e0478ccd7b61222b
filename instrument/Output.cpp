#include "instrument/Output.h"

#include "ports/packet/WireFormat.h"

#include <utility>

namespace instrument {

void Output::Send(const ResponsePlan& plan, Address to, Payload payload, Time now)
{
    if (plan.delay > Time::zero()) {
        auto copy = payload ? std::optional(Bytes(payload->begin(), payload->end())) : std::nullopt;
        m_delayed.emplace(now + plan.delay, [this, plan, to, copy = std::move(copy)](Time due) {
            Emit(plan, to, copy ? Payload(*copy) : std::nullopt, due);
        });
        return;
    }
    EmitDue(now);
    Emit(plan, to, payload, now);
}

void Output::EmitDue(Time now)
{
    while (!m_delayed.empty() && m_delayed.begin()->first <= now) {
        const auto& [due, emit] = *m_delayed.begin();
        emit(due);
        m_delayed.erase(m_delayed.begin());
    }
}

void Output::Emit(const ResponsePlan& plan, Address to, Payload payload, Time now)
{
    for (unsigned copy = 0; copy < plan.copies; ++copy) {
        Queue(plan, Compose(plan, to, payload), now);
    }
}

Bytes Output::Compose(const ResponsePlan& plan, Address to, Payload payload)
{
    Bytes bytes = Garbage(plan.garbage);
    bytes.insert(bytes.end(), plan.rawAhead.begin(), plan.rawAhead.end());
    if (!payload) {
        return bytes;
    }
    const auto next = static_cast<std::uint8_t>(m_nextNumber + plan.skippedNumbers);
    const std::uint8_t number = m_script.numbersAreZero ? std::uint8_t{0} : plan.packetNumber.value_or(next);
    m_nextNumber = static_cast<std::uint8_t>(number + 1);
    const wire::Header header =
        wire::BuildHeader(number, wire::PortTraffic, to.deviceType, to.port, payload->size());
    bytes.reserve(bytes.size() + payload->size() + wire::FrameOverhead);
    bytes.insert(bytes.end(), header.begin(), header.end());
    const std::size_t payloadAt = bytes.size();
    bytes.insert(bytes.end(), payload->begin(), payload->end());
    if (plan.wrongPayload && !payload->empty()) {
        bytes[payloadAt] = static_cast<std::uint8_t>(bytes[payloadAt] ^ 0xFF);
    }
    wire::Trailer trailer = wire::BuildTrailer(std::span(bytes).subspan(payloadAt));
    if (plan.wrongChecksum) {
        trailer[0] = static_cast<std::uint8_t>(trailer[0] ^ 0xFF);
    }
    bytes.insert(bytes.end(), trailer.begin(), trailer.end());
    return bytes;
}

Bytes Output::Garbage(std::size_t count)
{
    Bytes garbage(count);
    for (std::size_t at = 0; at < count; ++at) {
        garbage[at] = static_cast<std::uint8_t>(m_random() >> 8);
        // A '#' right before a packet would make the reader take it for the first half of the packet's sync pair.
        const bool mayPair = at == 0 || garbage[at - 1] == wire::SyncByte || at + 1 == count;
        if (garbage[at] == wire::SyncByte && mayPair) {
            garbage[at] = 0;
        }
    }
    return garbage;
}

void Output::Queue(const ResponsePlan& plan, Bytes bytes, Time now)
{
    if (plan.vanishing) {
        bytes.resize(std::min(plan.vanishing->after.value_or(bytes.size() / 2), bytes.size()));
        m_stream.push_back({.bytes = std::move(bytes), .due = now, .vanish = plan.vanishing});
    } else if (plan.splitInto != 0) {
        for (std::span<const std::uint8_t> rest(bytes); !rest.empty();) {
            const auto part = rest.first(std::min(plan.splitInto, rest.size()));
            const Time gap = rest.size() == bytes.size() ? Time::zero() : plan.splitGap;
            m_stream.push_back({.bytes = Bytes(part.begin(), part.end()), .due = now, .gap = gap});
            rest = rest.subspan(part.size());
        }
    } else {
        QueueJoined(plan, std::move(bytes), now);
    }
}

void Output::QueueJoined(const ResponsePlan& plan, Bytes bytes, Time now)
{
    Piece* const last = m_stream.empty() ? nullptr : &m_stream.back();
    const bool fits = last != nullptr && last->bytes.size() + bytes.size() <= m_script.largestWrite;
    if (fits && last->room != 0 && (last->room != AnyNumber || plan.mergeOf == 0)) {
        last->bytes.insert(last->bytes.end(), bytes.begin(), bytes.end());
        if (last->room != AnyNumber) {
            --last->room;
            last->due = last->room == 0 ? now : last->due;
        }
    } else if (plan.mergeOf == 0) {
        m_stream.push_back({.bytes = std::move(bytes), .due = now, .room = AnyNumber});
    } else {
        m_stream.push_back({.bytes = std::move(bytes), .due = now + plan.mergeWait, .room = plan.mergeOf - 1});
    }
}

Output::Order Output::Take(Time now, Bytes& bytes)
{
    if (m_return && *m_return <= now) {
        m_return.reset();
        return Order::Return;
    }
    EmitDue(now);
    if (m_return || m_stream.empty() || m_stream.front().due > now) {
        return Order::Nothing;
    }
    Piece& front = m_stream.front();
    if (front.vanish && front.bytes.empty()) {
        m_return = front.vanish->back ? now + *front.vanish->back : Time::max();
        Restart();
        return Order::Vanish;
    }
    if (front.bytes.size() > m_script.largestWrite) {
        const auto cut = front.bytes.begin() + static_cast<std::ptrdiff_t>(m_script.largestWrite);
        bytes.assign(front.bytes.begin(), cut);
        front.bytes.erase(front.bytes.begin(), cut);
        front.room = 0;
        return Order::Write;
    }
    bytes = std::exchange(front.bytes, {});
    if (!front.vanish) {
        m_stream.pop_front();
    }
    if (!m_stream.empty()) {
        m_stream.front().due = std::max(m_stream.front().due, now + m_stream.front().gap);
    }
    return Order::Write;
}

} // namespace instrument
