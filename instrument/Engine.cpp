#include "instrument/Engine.h"

#include "console/Format.h"
#include "console/HexDump.h"
#include "console/SequencedPayload.h"

#include <algorithm>

namespace instrument {

namespace {

constexpr Address BootloaderAddress{0, 0};
constexpr Time ProgressPeriod = std::chrono::seconds(1);

} // namespace

void Engine::Connected(Time now)
{
    Disconnected();
    m_connected = true;
    ++m_counters.connections;
    m_floodStart = now;
    m_flooded = 0;
    for (const Rule& rule : m_script.rules) {
        if (rule.trigger.after) {
            m_timers.emplace_back(now + *rule.trigger.after, &rule);
        }
    }
    Say("router connected");
}

void Engine::Disconnected()
{
    m_connected = false;
    m_received.Clear();
    m_output.Restart();
    m_timers.clear();
    m_lastNumber.reset();
}

void Engine::Receive(std::span<const std::uint8_t> bytes, Time now)
{
    if (!m_connected) {
        return;
    }
    m_counters.bytesReceived += bytes.size();
    m_received.Append(bytes);
    DropGarbage();
    while (const auto frame = wire::ParseFrame(m_received.Bytes())) {
        OnFrame(*frame, now);
        m_received.Consume(frame->Length());
        DropGarbage();
    }
}

void Engine::DropGarbage()
{
    const auto bytes = m_received.Bytes();
    // A last lone '#' may be the first half of a pair that was cut.
    const bool endsInHalf = !bytes.empty() && bytes.back() == wire::SyncByte;
    const std::size_t garbage = wire::FindSync(bytes).value_or(bytes.size() - (endsInHalf ? 1 : 0));
    if (garbage != 0) {
        m_counters.garbageReceived += garbage;
        m_received.Consume(garbage);
        Say(std::to_string(garbage) + " bytes that belong to no packet");
    }
}

void Engine::OnFrame(const wire::Frame& frame, Time now)
{
    const bool gap = m_lastNumber && frame.packetNumber != static_cast<std::uint8_t>(*m_lastNumber + 1);
    m_lastNumber = frame.packetNumber;
    const wire::Trailer trailer = wire::BuildTrailer(frame.payload);
    // The trailer lies right after the payload, inside the frame.
    const bool wrongChecksum =
        !std::equal(trailer.begin(), trailer.end(), frame.payload.data() + frame.payload.size());
    m_counters.numberGaps += gap ? 1 : 0;
    m_counters.wrongChecksums += wrongChecksum ? 1 : 0;
    const bool isTraffic = frame.packetType == wire::PortTraffic;
    // A download would print thousands of lines; its progress tells more.
    if (isTraffic && Address{frame.deviceType, frame.port} == BootloaderAddress) {
        OnFirmwareMessage(frame, now);
        return;
    }
    if (m_listener) {
        m_listener(console::Format("no %3d type %3d [%02d,%02d] %5zu bytes ", frame.packetNumber, frame.packetType,
                                   frame.deviceType, frame.port, frame.payload.size()) +
                   hexdump::Short(frame.payload) + (gap ? " (number gap)" : "") +
                   (wrongChecksum ? " (wrong checksum)" : ""));
    }
    if (isTraffic) {
        OnRequest(frame, now);
    } else {
        ++(frame.packetType == wire::ControlPacket ? m_counters.controlPackets : m_counters.otherPackets);
    }
}

void Engine::OnFirmwareMessage(const wire::Frame& frame, Time now)
{
    ++m_counters.firmwareMessages;
    ResponsePlan plan = m_firmware.OnMessage(frame.payload, now);
    plan.delay = m_script.firmware.delay;
    Perform(plan, BootloaderAddress, frame.payload, now, m_counters.answers);
    const FirmwareReport& report = m_firmware.Report();
    const bool receiving = report.state == FirmwareReport::State::Receiving && report.state == m_stateSaid;
    if (m_listener && (!receiving || now - m_progressSaid >= ProgressPeriod)) {
        m_stateSaid = report.state;
        m_progressSaid = now;
        m_listener(report.Line());
    }
}

void Engine::OnRequest(const wire::Frame& frame, Time now)
{
    ++m_counters.requests;
    const Address from{frame.deviceType, frame.port};
    ResponsePlan plan;
    for (const Rule& rule : m_script.rules) {
        if (rule.trigger.Matches(m_counters.requests, from, m_random)) {
            rule.Apply(plan);
        }
    }
    Perform(plan, from, frame.payload, now, m_counters.answers);
}

void Engine::Perform(const ResponsePlan& plan, Address from, std::span<const std::uint8_t> request, Time now,
                     std::uint64_t& counter)
{
    // What is done to packets is done to the answer, or without one to the first of the others.
    const ResponsePlan plain{.delay = plan.delay};
    const ResponsePlan* treatment = &plan;
    const auto send = [&](Address to, const std::optional<Bytes>& payload) {
        m_output.Send(*treatment, to, payload ? std::span<const std::uint8_t>(*payload) : request, now);
        counter += treatment->copies;
        treatment = &plain;
    };
    if (plan.isAnswered) {
        send(from, plan.fixedAnswer);
    }
    for (const ResponsePlan::Extra& extra : plan.extras) {
        send(extra.to, extra.payload);
    }
    const bool sendsWithoutPacket = plan.garbage != 0 || !plan.rawAhead.empty() || plan.vanishing;
    if (treatment == &plan && sendsWithoutPacket) {
        m_output.Send(plan, from, std::nullopt, now);
    }
}

void Engine::RunTimers(Time now)
{
    for (auto& [due, rule] : m_timers) {
        while (due <= now) {
            ResponsePlan plan = ResponsePlan::Silence();
            rule->Apply(plan);
            Perform(plan, {}, {}, due, m_counters.unsolicited);
            due = rule->trigger.repeats ? due + *rule->trigger.after : Time::max();
        }
    }
}

Time Engine::FloodDue() const
{
    const auto& flood = m_script.flood;
    if (!m_connected || !flood || (flood->count != 0 && m_flooded >= flood->count)) {
        return Time::max();
    }
    if (flood->perSecond == 0) {
        return m_floodStart;
    }
    // Whole seconds and the rest apart, so that the product stays within 64 bits for as long as anyone waits.
    const auto seconds = static_cast<std::int64_t>(m_flooded / flood->perSecond);
    const std::uint64_t rest = m_flooded % flood->perSecond * 1'000'000 / flood->perSecond;
    return m_floodStart + std::chrono::seconds(seconds) + Time(static_cast<Time::rep>(rest));
}

void Engine::RunFlood(Time now)
{
    const ResponsePlan plain;
    const Address to = m_script.flood->to;
    const auto mark = static_cast<std::uint16_t>(to.deviceType << 8 | to.port);
    const std::size_t packetLength = m_script.flood->payloadLength + wire::FrameOverhead;
    Bytes payload(m_script.flood->payloadLength);
    // At least one packet, else as many as one write holds.
    std::size_t room = std::max(m_script.largestWrite, packetLength);
    for (; FloodDue() <= now && room >= packetLength; room -= packetLength) {
        sequenced::Fill(payload, m_flooded++, mark);
        m_output.Send(plain, to, payload, now);
        ++m_counters.unsolicited;
    }
}

Engine::Order Engine::Take(Time now, Bytes& bytes)
{
    if (IsAway()) {
        return m_output.Take(now, bytes);
    }
    RunTimers(now);
    Order order = m_output.Take(now, bytes);
    if (order == Order::Nothing && FloodDue() <= now) {
        RunFlood(now);
        order = m_output.Take(now, bytes);
    }
    if (order == Order::Write) {
        m_counters.bytesSent += bytes.size();
    } else if (order == Order::Vanish) {
        ++m_counters.vanished;
        Disconnected();
    }
    return order;
}

std::optional<Time> Engine::NextDue() const
{
    Time due = m_output.NextDue();
    if (!IsAway()) {
        due = std::min(due, FloodDue());
        for (const auto& timer : m_timers) {
            due = std::min(due, timer.first);
        }
    }
    return due != Time::max() ? std::optional(due) : std::nullopt;
}

} // namespace instrument
