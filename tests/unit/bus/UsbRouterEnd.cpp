#include "tests/unit/bus/UsbRouterEnd.h"

#include "ports/packet/WireFormat.h"
#include "tests/support/Frames.h"

#include <memory>

namespace {

constexpr std::uint8_t OutAddress = 0x02;
constexpr std::uint8_t InAddress = 0x86;
constexpr std::uint32_t LongestRead = 65'535;

} // namespace

bool UsbRouterEnd::Find(std::uint16_t productId)
{
    const std::uint8_t count = m_device.DeviceCount();
    for (std::uint8_t index = 0; index < count; ++index) {
        if (m_device.Open(index) && m_device.ProductId() == productId) {
            return true;
        }
    }
    m_device.Close();
    return false;
}

bool UsbRouterEnd::Open(std::uint16_t productId)
{
    m_number = 0;
    m_received.Clear();
    return support::WaitUntil([&] { return Find(productId); }) && Endpoint(OutAddress) != nullptr &&
           Endpoint(InAddress) != nullptr;
}

void UsbRouterEnd::Close()
{
    m_read.Abort();
    m_write.Abort();
    m_device.Close();
}

bool UsbRouterEnd::Look()
{
    const bool found = support::WaitUntil([&] { return Find(0x0100); });
    m_device.Close();
    return found;
}

bool UsbRouterEnd::WaitUntilGone()
{
    return support::WaitUntil([&] { return m_device.DeviceCount() == 0; });
}

CCyUSBEndPoint* UsbRouterEnd::Endpoint(std::uint8_t address)
{
    for (std::size_t i = 1; i < m_device.EndpointCount(); ++i) {
        if (m_device.Endpoint(i) != nullptr && m_device.Endpoint(i)->Address() == address) {
            return m_device.Endpoint(i);
        }
    }
    return nullptr;
}

bool UsbRouterEnd::Send(std::uint8_t deviceType, std::uint8_t port, const std::string& payload)
{
    auto frame =
        std::make_unique<std::string>(support::Frame(m_number++, wire::PortTraffic, deviceType, port, payload));
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(frame->data()), frame->size());
    const std::size_t wanted = frame->size();
    std::uint32_t length = 0;
    return m_write.BeginWrite(*Endpoint(OutAddress), usb::Keep(std::move(frame)), bytes) &&
           support::WaitFor(m_write.EventHandle()) && m_write.HasEnded() && m_write.Finish(length) &&
           length == wanted;
}

std::string UsbRouterEnd::ReadPiece()
{
    std::uint32_t length = 0;
    if (!m_read.BeginRead(*Endpoint(InAddress), LongestRead) || !support::WaitFor(m_read.EventHandle()) ||
        !m_read.HasEnded() || !m_read.Finish(length))
    {
        return {};
    }
    const auto bytes = m_read.Received().first(length);
    return {bytes.begin(), bytes.end()};
}

std::optional<UsbRouterEnd::Packet> UsbRouterEnd::Next()
{
    for (;;) {
        if (const auto sync = wire::FindSync(m_received.Bytes())) {
            m_received.Consume(*sync);
            if (const auto frame = wire::ParseFrame(m_received.Bytes())) {
                Packet packet{frame->packetNumber, frame->deviceType, frame->port,
                              std::string(frame->payload.begin(), frame->payload.end())};
                m_received.Consume(frame->Length());
                return packet;
            }
        }
        const std::string piece = ReadPiece();
        if (piece.empty()) {
            return std::nullopt;
        }
        m_received.Append({reinterpret_cast<const std::uint8_t*>(piece.data()), piece.size()});
    }
}
