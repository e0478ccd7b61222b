#include "instrument/InstrumentEngine.h"

#include "instrument/SequencedPayload.h"

#include <algorithm>
#include <array>
#include <utility>

namespace instrument {

namespace {

constexpr Address BootloaderAddress{0, 0};

std::uint16_t MarkOf(Address address) noexcept
{
    return static_cast<std::uint16_t>(address.deviceType << 8 | address.port);
}

} // namespace

InstrumentEngine::InstrumentEngine(Script script, Observer* observer, std::optional<Bytes> expectedImage)
    : m_script(std::move(script)),
      m_observer(observer),
      m_firmware(m_script.firmware, std::move(expectedImage)),
      m_output(m_script.numbering, m_script.firstNumber, m_script.largestWrite, m_script.seed),
      m_random(m_script.seed)
{
}

void InstrumentEngine::Connected(Time now)
{
    Disconnected(now);
    m_connected = true;
    ++m_counters.connections;
    m_floodStart = now;
    m_flooded = 0;
    for (const Rule& rule : m_script.rules) {
        if (rule.trigger.IsTimed()) {
            const bool atOnce = rule.trigger.kind == RuleTrigger::Kind::Connected;
            m_timers.push_back({&rule, atOnce ? now : now + rule.trigger.time});
        }
    }
}

void InstrumentEngine::Disconnected(Time)
{
    m_connected = false;
    m_received.Clear();
    m_output.Restart();
    m_timers.clear();
    m_lastNumber.reset();
}

void InstrumentEngine::Receive(std::span<const std::uint8_t> bytes, Time now)
{
    if (!m_connected) {
        return;
    }
    m_counters.bytesReceived += bytes.size();
    m_received.Append(bytes);
    while (SkipToSync()) {
        const std::optional<wire::Frame> frame = wire::ParseFrame(m_received.Bytes());
        if (!frame) {
            return;
        }
        OnFrame(*frame, now);
        m_received.Consume(frame->Length());
    }
}

bool InstrumentEngine::SkipToSync()
{
    const auto bytes = m_received.Bytes();
    const std::optional<std::size_t> sync = wire::FindSync(bytes);
    // A last lone '#' may be the first half of a pair that was cut.
    const bool halfPair = !sync && !bytes.empty() && bytes.back() == wire::SyncByte;
    const std::size_t garbage = sync.value_or(bytes.size() - (halfPair ? 1 : 0));
    if (garbage != 0) {
        m_counters.garbageReceived += garbage;
        m_received.Consume(garbage);
        if (m_observer != nullptr) {
            m_observer->OnGarbage(garbage);
        }
    }
    return sync.has_value();
}

void InstrumentEngine::OnFrame(const wire::Frame& frame, Time now)
{
    const bool gap = m_lastNumber && frame.packetNumber != static_cast<std::uint8_t>(*m_lastNumber + 1);
    m_lastNumber = frame.packetNumber;
    const wire::Trailer trailer = wire::BuildTrailer(frame.payload);
    // The trailer lies right behind the payload, inside the frame.
    const bool wrongChecksum =
        !std::equal(trailer.begin(), trailer.end(), frame.payload.data() + frame.payload.size());
    m_counters.numberGaps += gap ? 1 : 0;
    m_counters.wrongChecksums += wrongChecksum ? 1 : 0;
    if (m_observer != nullptr) {
        m_observer->OnPacket(frame, gap, wrongChecksum);
    }
    if (frame.packetType == wire::ControlPacket) {
        ++m_counters.controlPackets;
    } else if (frame.packetType != wire::PortTraffic) {
        ++m_counters.otherPackets;
    } else if (Address{frame.deviceType, frame.port} == BootloaderAddress) {
        OnFirmwareMessage(frame, now);
    } else {
        OnRequest(frame, now);
    }
}

void InstrumentEngine::OnFirmwareMessage(const wire::Frame& frame, Time now)
{
    ++m_counters.firmwareMessages;
    InstrumentFirmware::Answer answer = m_firmware.OnMessage(frame.payload, now);
    Treatment treatment;
    treatment.delay = m_script.firmware.delay;
    if (answer.vanish) {
        treatment.vanishing = Vanishing{SIZE_MAX, m_script.firmware.back};
    }
    if (answer.text) {
        ++m_counters.answers;
        m_output.Send(treatment, BootloaderAddress, *answer.text, now);
    } else if (answer.vanish) {
        m_output.Send(treatment, BootloaderAddress, std::nullopt, now);
    }
    if (m_observer != nullptr) {
        m_observer->OnFirmware(m_firmware.Report());
    }
}

void InstrumentEngine::OnRequest(const wire::Frame& frame, Time now)
{
    ++m_counters.requests;
    const Address from{frame.deviceType, frame.port};
    Treatment treatment;
    for (const Rule& rule : m_script.rules) {
        if (!rule.trigger.IsTimed() && Matches(rule.trigger, from)) {
            for (const RuleAction& action : rule.actions) {
                action.Apply(treatment);
            }
        }
    }
    Perform(treatment, from, frame.payload, now, m_counters.answers);
}

bool InstrumentEngine::Matches(const RuleTrigger& trigger, Address from)
{
    if (trigger.from && *trigger.from != from) {
        return false;
    }
    switch (trigger.kind) {
    case RuleTrigger::Kind::Requests:
        return m_counters.requests >= trigger.first && m_counters.requests <= trigger.last;
    case RuleTrigger::Kind::Every: return trigger.first != 0 && m_counters.requests % trigger.first == 0;
    case RuleTrigger::Kind::Chance: return m_random() % 100 < trigger.first;
    default: return true;
    }
}

void InstrumentEngine::Perform(const Treatment& treatment, Address from, std::span<const std::uint8_t> request,
                               Time now, std::uint64_t& counter)
{
    // What is done to packets is done to the answer, or without one to the first of the others.
    bool treated = false;
    const auto send = [&](Address to, std::span<const std::uint8_t> payload) {
        if (std::exchange(treated, true)) {
            Treatment plain;
            plain.delay = treatment.delay;
            m_output.Send(plain, to, payload, now);
            ++counter;
        } else {
            m_output.Send(treatment, to, payload, now);
            counter += treatment.copies;
        }
    };
    if (treatment.answer != Treatment::Answer::None) {
        send(from, treatment.answer == Treatment::Answer::Echo ? request : treatment.fixedAnswer);
    }
    for (const Treatment::Extra& extra : treatment.extras) {
        send(extra.to, extra.payload ? std::span<const std::uint8_t>(*extra.payload) : request);
    }
    if (!treated && treatment.HasSurroundings()) {
        m_output.Send(treatment, from, std::nullopt, now);
    }
}

void InstrumentEngine::RunTimers(Time now)
{
    for (Timer& timer : m_timers) {
        while (timer.due <= now) {
            Treatment treatment;
            treatment.answer = Treatment::Answer::None;
            for (const RuleAction& action : timer.rule->actions) {
                action.Apply(treatment);
            }
            Perform(treatment, {}, {}, timer.due, m_counters.unsolicited);
            const bool again = timer.rule->trigger.kind == RuleTrigger::Kind::Each;
            timer.due = again ? timer.due + timer.rule->trigger.time : Time::max();
        }
    }
}

Time InstrumentEngine::FloodDue() const
{
    const Flood& flood = *m_script.flood;
    if (flood.perSecond == 0) {
        return m_floodStart;
    }
    constexpr std::uint64_t Second = 1'000'000;
    // Whole seconds and the rest apart, so that the product stays within 64 bits for as long as anyone waits.
    const std::uint64_t seconds = m_flooded / flood.perSecond;
    const std::uint64_t rest = m_flooded % flood.perSecond * Second / flood.perSecond;
    return m_floodStart + Time(static_cast<Time::rep>(seconds * Second + rest));
}

bool InstrumentEngine::IsFlooding() const noexcept
{
    return m_connected && m_script.flood && (m_script.flood->count == 0 || m_flooded < m_script.flood->count);
}

void InstrumentEngine::RunFlood(Time now)
{
    const Treatment plain;
    const std::size_t packetLength = m_script.flood->payloadLength + wire::FrameOverhead;
    // At least one packet, else as many as one write holds.
    std::size_t room = std::max(m_script.largestWrite, packetLength);
    m_floodPayload.resize(m_script.flood->payloadLength);
    while (IsFlooding() && FloodDue() <= now && room >= packetLength) {
        sequenced::Fill(m_floodPayload, m_flooded++, MarkOf(m_script.flood->to));
        m_output.Send(plain, m_script.flood->to, m_floodPayload, now);
        ++m_counters.unsolicited;
        room -= packetLength;
    }
}

InstrumentEngine::Order InstrumentEngine::Take(Time now, Bytes& bytes)
{
    if (m_away) {
        if (!m_return || *m_return > now) {
            return Order::Nothing;
        }
        m_away = false;
        m_return.reset();
        return Order::Return;
    }
    if (!m_connected) {
        return Order::Nothing;
    }
    RunTimers(now);
    InstrumentOutput::Taken taken = m_output.Take(now, bytes);
    if (taken == InstrumentOutput::Taken::Nothing && IsFlooding()) {
        RunFlood(now);
        taken = m_output.Take(now, bytes);
    }
    switch (taken) {
    case InstrumentOutput::Taken::Nothing: return Order::Nothing;
    case InstrumentOutput::Taken::Vanish: Vanish(now); return Order::Vanish;
    case InstrumentOutput::Taken::Write: break;
    }
    m_counters.bytesSent += bytes.size();
    return Order::Write;
}

void InstrumentEngine::Vanish(Time now)
{
    ++m_counters.vanished;
    Disconnected(now);
    m_away = true;
    if (const std::optional<Time> back = m_output.AwayFor()) {
        m_return = now + *back;
    }
}

std::optional<Time> InstrumentEngine::NextDue() const
{
    if (m_away) {
        return m_return;
    }
    std::optional<Time> due = m_output.NextDue();
    const auto earlier = [&due](Time time) {
        if (!due || time < *due) {
            due = time;
        }
    };
    for (const Timer& timer : m_timers) {
        if (timer.due != Time::max()) {
            earlier(timer.due);
        }
    }
    if (IsFlooding()) {
        earlier(FloodDue());
    }
    return due;
}

} // namespace instrument
