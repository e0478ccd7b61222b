#include "tests/unit/ports/PortPipeFixture.h"

#include <chrono>
#include <cstdio>

PortPipe::PortPipe()
{
    RecordingTrace::Clear();
}

PortPipe::~PortPipe()
{
    client.Close();
    port.reset();
    if (HasFailure()) {
        for (const std::string& line : RecordingTrace::Texts()) {
            std::printf("  %s\n", line.c_str());
        }
    }
    RecordingTrace::Clear();
}

CCDevicePortPipe& PortPipe::Make(std::int32_t readSize, std::int32_t writeSize, PortOptions options)
{
    port = std::make_unique<CCDevicePortPipe>(&transport, 3, 1, name, readSize, writeSize, options);
    return *port;
}

void PortPipe::Connect()
{
    // An open may fall into the moment of a re-creation; the port's own flag tells which open counts.
    ASSERT_TRUE(support::WaitUntil([this] {
        return client.Open(name) &&
               support::WaitUntil([this] { return port->IsPipeConnected(); }, std::chrono::milliseconds(200));
    }));
}

void PortPipe::SendToClient(const std::string& payload)
{
    port->Send(&transport, reinterpret_cast<const std::uint8_t*>(payload.data()),
               static_cast<std::uint32_t>(payload.size()));
}

void PortPipe::CompleteAtOnce()
{
    // Not the owner, which is null while it destroys the port: a last request may still be on its way.
    transport.OnSend([served = port.get()] { served->PacketCompleted(); });
}

void PortPipe::LeaveUnread()
{
    SendToClient("unread");
    ASSERT_TRUE(support::WaitUntil([this] { return client.Available() > 0; }));
}
