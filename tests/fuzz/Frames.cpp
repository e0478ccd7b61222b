// What the instrument sends, in any cut, against a plain model of the packet format.
//
// Input: a byte n, n block sizes (0: 256; used again and again), then the stream. A block of size 7 makes the
// handler throw at its first packet.
#include "ports/packet/FrameReader.h"
#include "tests/fuzz/Choices.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace fuzz {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t ThrowingBlock = 7;

struct Thrown
{};

/// Copies all it gets, and moves the rest to the front after each packet.
class PlainReader
{
public:
    void Take(Input block, bool throwing)
    {
        m_bytes.insert(m_bytes.end(), block.begin(), block.end());
        while (m_bytes.size() >= 15) {
            DropToPair();
            if (m_bytes.size() < 14) {
                return;
            }
            const std::size_t length = m_bytes[10] * 256u + m_bytes[11] + 14u;
            if (m_bytes.size() < length) {
                return;
            }
            packets.emplace_back(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(length));
            m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(length));
            if (throwing) {
                return;
            }
            DropToPair();
        }
    }
    std::size_t Buffered() const noexcept { return m_bytes.size(); }

    std::vector<Bytes> packets;

private:
    void DropToPair()
    {
        constexpr Bytes::value_type pair[] = {'#', '#'};
        m_bytes.erase(m_bytes.begin(), std::search(m_bytes.begin(), m_bytes.end(), pair, pair + 2));
    }

    Bytes m_bytes;
};

Bytes Framed(const wire::Frame& frame)
{
    const wire::Header header = wire::BuildHeader(frame.packetNumber, frame.packetType, frame.deviceType,
                                                  frame.port, frame.payload.size());
    const wire::Trailer trailer = wire::BuildTrailer(frame.payload);
    Bytes bytes(header.begin(), header.end());
    bytes.insert(bytes.end(), frame.payload.begin(), frame.payload.end());
    bytes.insert(bytes.end(), trailer.begin(), trailer.end());
    return bytes;
}

bool AreEqual(const wire::Frame& one, const wire::Frame& other)
{
    return one.packetNumber == other.packetNumber && one.packetType == other.packetType &&
           one.deviceType == other.deviceType && one.port == other.port &&
           std::ranges::equal(one.payload, other.payload);
}

void CheckFrame(const wire::Frame& frame, const Bytes& packet)
{
    Check(frame.Length() == packet.size(), "a packet is as long as its header says");
    Check(frame.packetNumber == packet[2] && frame.packetType == packet[3], "number and type are its own");
    Check(frame.deviceType == packet[6] && frame.port == packet[7], "the address is its own");
    Check(std::equal(frame.payload.begin(), frame.payload.end(), packet.begin() + 12), "so is the payload");
    const PortAddress address = frame.Address();
    Check(address.deviceType == (packet[6] == 255 ? -1 : packet[6]), "255 means any device type");
    Check(address.port == (packet[7] == 255 ? -1 : packet[7]), "255 means any port");

    const Bytes anew = Framed(frame);
    const std::optional<wire::Frame> parsed = wire::ParseFrame(anew);
    Check(parsed && AreEqual(*parsed, frame), "framed anew it is the same packet");
    Check(!wire::ParseFrame(std::span(anew).first(anew.size() - 1)), "without its last byte it is none");
}

/// The whole input as one payload: it comes out as it went in, byte by byte.
void CheckPayload(Input payload)
{
    if (payload.empty() || payload.size() > 65'535) {
        return;
    }
    const Bytes packet = Framed({9, wire::PortTraffic, 3, 255, payload});
    FrameReader reader;
    std::size_t found = 0;
    for (const std::uint8_t byte : packet) {
        reader.Append({&byte, 1});
        reader.TakeFrames([&](const wire::Frame& frame) {
            ++found;
            Check(std::ranges::equal(frame.payload, payload), "a payload comes out as it went in");
        });
        Check(found == 0 || reader.Buffered() == 0, "a packet comes with its last byte, not before");
    }
    Check(found == 1, "one packet in, one packet out");
}

} // namespace

void Frames(Input input)
{
    CheckPayload(input.first(std::min<std::size_t>(input.size(), 300)));
    Choices choices(input);
    const Input sizes = choices.Bytes(choices.Below(16));
    FrameReader reader;
    PlainReader plain;
    std::size_t received = 0;
    std::size_t next = 0;
    for (std::size_t turn = 0; !choices.AtEnd(); ++turn) {
        const std::size_t chosen = sizes.empty() ? 0 : sizes[turn % sizes.size()];
        const bool throwing = chosen == ThrowingBlock;
        const Input block = choices.Bytes(chosen == 0 ? 256 : chosen);
        received += block.size();
        plain.Take(block, throwing);
        reader.Append(block);
        try {
            reader.TakeFrames([&](const wire::Frame& frame) {
                Check(frame.Length() <= received, "no packet is longer than what was received");
                Check(next < plain.packets.size(), "no packet that the model does not see");
                CheckFrame(frame, plain.packets[next++]);
                if (throwing) {
                    throw Thrown();
                }
            });
        } catch (const Thrown&) {
        }
        Check(next == plain.packets.size(), "every packet that the model sees");
        Check(reader.Buffered() == plain.Buffered(), "the rest that waits is the model's");
    }
}

} // namespace fuzz
