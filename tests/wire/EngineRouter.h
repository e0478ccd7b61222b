// The router's end of a simulated instrument in a test: writes packets into the engine, reads what comes back.
#pragma once

#include "instrument/Engine.h"
#include "ports/packet/ReceiveBuffer.h"
#include "ports/packet/WireFormat.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace enginetest {

using instrument::Address;
using instrument::Bytes;
using instrument::Engine;
using instrument::Time;
using Order = Engine::Order;

inline Bytes Text(std::string_view text)
{
    return {text.begin(), text.end()};
}

inline Time Ms(std::int64_t milliseconds)
{
    return std::chrono::milliseconds(milliseconds);
}

inline Bytes PacketBytes(std::uint8_t number, Address to, const Bytes& payload,
                         std::uint8_t type = wire::PortTraffic)
{
    const wire::Header header = wire::BuildHeader(number, type, to.deviceType, to.port, payload.size());
    const wire::Trailer trailer = wire::BuildTrailer(payload);
    Bytes packet(header.begin(), header.end());
    packet.insert(packet.end(), payload.begin(), payload.end());
    packet.insert(packet.end(), trailer.begin(), trailer.end());
    return packet;
}

inline instrument::Script ScriptOf(std::string_view text)
{
    instrument::Script script;
    const auto error = AddScriptText(script, text);
    EXPECT_EQ(error.value_or("no error"), "no error");
    return script;
}

/// A packet of the instrument, out of its frame.
struct Packet
{
    std::uint8_t number;
    std::uint8_t type;
    Address to;
    Bytes payload;
    bool checksumRight;

    std::string Said() const { return {payload.begin(), payload.end()}; }
};

/// Connected from the start; times count from its construction.
class Router
{
public:
    explicit Router(std::string_view script, std::optional<Bytes> expectedImage = std::nullopt)
        : engine(ScriptOf(script), {}, std::move(expectedImage))
    {
        engine.Connected(now);
    }

    void Connect()
    {
        m_number = 0;
        m_received.Clear();
        engine.Connected(now);
    }

    void Write(Address to, const Bytes& payload) { engine.Receive(PacketBytes(m_number++, to, payload), now); }
    void Write(Address to, std::string_view payload) { Write(to, Text(payload)); }

    /// Everything that is due by now, as the writes that the instrument makes.
    std::vector<Bytes> Writes()
    {
        std::vector<Bytes> writes;
        Bytes bytes;
        while ((last = engine.Take(now, bytes)) == Order::Write) {
            EXPECT_FALSE(bytes.empty());
            writes.push_back(bytes);
        }
        return writes;
    }

    /// The whole packets that are in everything that has come by now.
    std::vector<Packet> Packets()
    {
        for (const Bytes& each : Writes()) {
            m_received.Append(each);
        }
        std::vector<Packet> packets;
        while (const auto sync = wire::FindSync(m_received.Bytes())) {
            m_received.Consume(*sync);
            const auto frame = wire::ParseFrame(m_received.Bytes());
            if (!frame) {
                break;
            }
            const std::uint8_t* const trailer = frame->payload.data() + frame->payload.size();
            packets.push_back({frame->packetNumber,
                               frame->packetType,
                               {frame->deviceType, frame->port},
                               Bytes(frame->payload.begin(), frame->payload.end()),
                               trailer[0] == wire::BuildTrailer(frame->payload)[0]});
            m_received.Consume(frame->Length());
        }
        return packets;
    }

    /// The payload texts of Packets().
    std::vector<std::string> Texts()
    {
        std::vector<std::string> texts;
        for (const Packet& each : Packets()) {
            texts.push_back(each.Said());
        }
        return texts;
    }

    std::vector<int> Numbers()
    {
        std::vector<int> numbers;
        for (const Packet& each : Packets()) {
            numbers.push_back(each.number);
        }
        return numbers;
    }

    std::size_t Unparsed() const { return m_received.Size(); }

    Time now{};
    Engine engine;
    Order last = Order::Nothing; // what ended the last Writes() or Packets()

private:
    std::uint8_t m_number = 0;
    ReceiveBuffer m_received;
};

using Strings = std::vector<std::string>;
using Ints = std::vector<int>;

} // namespace enginetest
