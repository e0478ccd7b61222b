// Any traffic in any cut against any script of the simulated instrument: it keeps its promises and its bounds.
//
// Input: choices; see Traffic and Drive.
#include "instrument/Engine.h"
#include "tests/fuzz/Choices.h"

#include <array>
#include <string>
#include <vector>

namespace fuzz {

namespace {

using instrument::Bytes;
using instrument::Time;
using Order = instrument::Engine::Order;

constexpr std::array Lines{
    "delay 3",
    "every 2: delay 1",
    "chance 30: silence",
    "broadcast",
    "chance 20: gap 3",
    "every 3: checksum",
    "garbage 9",
    "chance 20: raw 23 23 23",
    "split 7 2",
    "chance 50: split 1",
    "merge 4 10",
    "chance 5: vanish back 4",
    "duplicate 3",
    "each 7: send 3,1 0001",
    "chance 2: vanish after 99999 back 1",
    "write 10",
    "numbers zero",
    "firmware at 1 vanish back 3",
    "firmware accept",
    "firmware quiet",
    "flood 3,1 30 2000",
    "after 5: vanish back 2",
    "send 0,0 \"x\"",
    "number 255",
    "connected: garbage 50",
};

instrument::Script ChosenScript(Choices& choices)
{
    instrument::Script script;
    for (std::uint32_t count = choices.Below(5); count > 0; --count) {
        Check(!AddScriptLine(script, Lines[choices.Below(Lines.size())]), "the lines of this table are right");
    }
    return script;
}

void Append(Bytes& bytes, std::span<const std::uint8_t> more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes Packet(Choices& choices, std::span<const std::uint8_t> payload, bool forFirmware)
{
    const std::uint8_t number = choices.Byte();
    const std::uint8_t deviceType = forFirmware ? std::uint8_t{0} : choices.Byte();
    const auto port = static_cast<std::uint8_t>(forFirmware ? 0 : choices.Below(4));
    const auto type = static_cast<std::uint8_t>(forFirmware ? 1 : choices.Below(3));
    Bytes bytes;
    Append(bytes, wire::BuildHeader(number, type, deviceType, port, payload.size()));
    Append(bytes, payload);
    Append(bytes, wire::BuildTrailer(payload));
    return bytes;
}

/// Bytes as a broken router might write them: packets, packets with lying lengths, sync pairs, noise.
Bytes Traffic(Choices& choices)
{
    static constexpr std::array<std::string_view, 6> firmware{
        "PREPARE_DOWNLOAD 50\r",        "DOWNLOAD data", "DOWNLOAD_DONE\r", "DOWNLOAD ", "PREPARE_DOWNLOAD ",
        "PREPARE_DOWNLOAD 4294967296\r"};
    switch (choices.Below(6)) {
    case 0: {
        const Input noise = choices.Bytes(choices.Below(60));
        return {noise.begin(), noise.end()};
    }
    case 1: return Bytes(choices.Below(4), wire::SyncByte);
    case 2: {
        const std::string_view text = firmware[choices.Below(firmware.size())];
        return Packet(choices, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, true);
    }
    case 3: {
        Bytes bytes = Packet(choices, choices.Bytes(choices.Below(40)), false);
        bytes[10 + choices.Below(2)] = static_cast<std::uint8_t>(choices.Below(64));
        return bytes;
    }
    case 4: return Packet(choices, choices.Bytes(choices.Below(40)), true);
    default: return Packet(choices, choices.Bytes(choices.Below(300)), false);
    }
}

/// An endpoint without a cable, which holds the engine to what its header promises.
class Driver
{
public:
    explicit Driver(const instrument::Script& script) : m_engine(script) { m_engine.Connected(m_now); }

    void Receive(std::span<const std::uint8_t> bytes) { m_engine.Receive(bytes, m_now); }
    void Reconnect()
    {
        m_engine.Disconnected();
        m_engine.Connected(m_now);
    }
    void Advance(Time time) { m_now += time; }

    /// All that is due, without the bytes.
    void TakeAll()
    {
        Bytes bytes;
        while ((m_last = m_engine.Take(m_now, bytes)) == Order::Write) {
            Check(!bytes.empty(), "a write has bytes");
            output.insert(output.end(), bytes.begin(), bytes.end());
        }
        Check(m_last != Order::Vanish || m_engine.IsAway(), "what vanished is away");
        if (m_last == Order::Return) {
            Check(!m_engine.IsAway(), "what returned is there");
            m_engine.Connected(m_now);
        }
    }

    /// Goes to what is due next and takes it.
    void TakeNext()
    {
        TakeAll();
        const auto due = m_engine.NextDue();
        if (!due || m_last == Order::Vanish || m_last == Order::Return) {
            return;
        }
        Check(*due > m_now, "what is due has been given");
        m_now = *due - Time(1);
        Bytes bytes;
        Check(m_engine.Take(m_now, bytes) == Order::Nothing, "nothing is given before it is due");
        m_now = *due;
        TakeAll();
    }

    const instrument::Counters& Counted() const noexcept { return m_engine.Counted(); }

    Bytes output; // all that was written

private:
    Time m_now{};
    instrument::Engine m_engine;
    Order m_last = Order::Nothing;
};

void Drive(Driver& driver, Choices& choices)
{
    while (!choices.AtEnd()) {
        const Bytes traffic = Traffic(choices);
        for (std::size_t at = 0; at < traffic.size();) {
            const std::size_t part = std::min<std::size_t>(1 + choices.Below(200), traffic.size() - at);
            driver.Receive(std::span(traffic).subspan(at, part));
            at += part;
            driver.Advance(Time(choices.Below(1500)));
        }
        switch (choices.Below(16)) {
        case 0: driver.Reconnect(); break;
        case 1:
        case 2:
        case 3: driver.TakeNext(); break;
        default: driver.TakeAll(); break;
        }
    }
    for (int step = 0; step < 20; ++step) {
        driver.TakeNext();
    }
}

/// Without waits and chance the cut of the input does not change the output.
void CheckCut(Input input)
{
    instrument::Script script;
    Check(!AddScriptText(script, "garbage 3\nevery 2: duplicate"), "these lines are right");
    Choices choices(input);
    Bytes traffic;
    while (!choices.AtEnd()) {
        Append(traffic, Traffic(choices));
    }
    Driver whole(script);
    whole.Receive(traffic);
    whole.TakeAll();
    Driver cut(script);
    for (std::size_t at = 0; at < traffic.size();) {
        const std::size_t part = std::min<std::size_t>(1 + (at * 7 + input.size()) % 9, traffic.size() - at);
        cut.Receive(std::span(traffic).subspan(at, part));
        at += part;
    }
    cut.TakeAll();
    Check(whole.output == cut.output, "the cut of the input does not change the output");
    Check(whole.Counted().garbageReceived == cut.Counted().garbageReceived, "nor what counts as garbage");
}

} // namespace

void InstrumentEngine(Input input)
{
    Choices choices(input);
    Driver driver(ChosenScript(choices));
    CheckCut(input);
    Drive(driver, choices);
    const instrument::Counters& counted = driver.Counted();
    Check(counted.garbageReceived <= counted.bytesReceived, "garbage is a part of what was received");
    Check(counted.requests + counted.controlPackets + counted.otherPackets + counted.firmwareMessages <=
              counted.bytesReceived / wire::FrameOverhead,
          "no more packets than bytes for them");
}

} // namespace fuzz
