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
        Compose(plan, to, payload);
        Queue(plan, now);
    }
}

void Output::Compose(const ResponsePlan& plan, Address to, Payload payload)
{
    m_composed.clear();
    AppendGarbage(plan.garbage);
    m_composed.insert(m_composed.end(), plan.rawAhead.begin(), plan.rawAhead.end());
    if (!payload) {
        return;
    }
    const auto next = static_cast<std::uint8_t>(m_nextNumber + plan.skippedNumbers);
    const std::uint8_t number = m_script.numbersAreZero ? std::uint8_t{0} : plan.packetNumber.value_or(next);
    m_nextNumber = static_cast<std::uint8_t>(number + 1);
    const wire::Header header =
        wire::BuildHeader(number, wire::PortTraffic, to.deviceType, to.port, payload->size());
    m_composed.insert(m_composed.end(), header.begin(), header.end());
    const std::size_t payloadAt = m_composed.size();
    m_composed.insert(m_composed.end(), payload->begin(), payload->end());
    if (plan.wrongPayload && !payload->empty()) {
        m_composed[payloadAt] = static_cast<std::uint8_t>(m_composed[payloadAt] ^ 0xFF);
    }
    wire::Trailer trailer = wire::BuildTrailer(std::span(m_composed).subspan(payloadAt));
    if (plan.wrongChecksum) {
        trailer[0] = static_cast<std::uint8_t>(trailer[0] ^ 0xFF);
    }
    m_composed.insert(m_composed.end(), trailer.begin(), trailer.end());
}

void Output::AppendGarbage(std::size_t count)
{
    // A '#' right before a packet would make the reader take it for the first half of the packet's sync pair.
    std::uint8_t previous = wire::SyncByte;
    for (std::size_t left = count; left > 0; --left) {
        auto byte = static_cast<std::uint8_t>(m_random() >> 8);
        if (byte == wire::SyncByte && (previous == wire::SyncByte || left == 1)) {
            byte = 0;
        }
        m_composed.push_back(byte);
        previous = byte;
    }
}

Output::Piece& Output::AddPiece(std::span<const std::uint8_t> bytes, Time due)
{
    Piece& piece = m_stream.emplace_back();
    piece.bytes.assign(bytes.begin(), bytes.end());
    piece.due = due;
    return piece;
}

void Output::Queue(const ResponsePlan& plan, Time now)
{
    const std::span<const std::uint8_t> all(m_composed);
    if (plan.vanishing) {
        const std::size_t last = plan.vanishing->after.value_or(all.size() / 2);
        AddPiece(all.first(std::min(last, all.size())), now).vanish = plan.vanishing;
    } else if (plan.splitInto != 0) {
        for (std::size_t at = 0; at < all.size(); at += plan.splitInto) {
            AddPiece(all.subspan(at, std::min(plan.splitInto, all.size() - at)), now).gap =
                at == 0 ? Time::zero() : plan.splitGap;
        }
    } else {
        QueueJoined(plan, now);
    }
}

void Output::QueueJoined(const ResponsePlan& plan, Time now)
{
    Piece* const last = m_stream.empty() ? nullptr : &m_stream.back();
    const bool fits = last != nullptr && last->bytes.size() + m_composed.size() <= m_script.largestWrite;
    if (fits && last->room != 0 && (last->room != AnyNumber || plan.mergeOf == 0)) {
        last->bytes.insert(last->bytes.end(), m_composed.begin(), m_composed.end());
        if (last->room != AnyNumber && --last->room == 0) {
            last->due = now;
        }
    } else if (plan.mergeOf == 0) {
        AddPiece(m_composed, now).room = AnyNumber;
    } else {
        AddPiece(m_composed, now + plan.mergeWait).room = plan.mergeOf - 1;
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
