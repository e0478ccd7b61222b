// A real port with a transport of the test's own and a client, for the tests of ports.
#pragma once

#include "ports/CCDevicePortPipe.h"
#include "tests/support/PipeClient.h"
#include "tests/support/RecordingTrace.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/ports/FakeTransport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

struct CCDevicePortPipeTestAccess
{
    static bool OnPipePacket(CCDevicePortPipe& port, const std::string& bytes)
    {
        return port.OnPipePacket(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                 static_cast<std::int32_t>(bytes.size()));
    }
    static std::int32_t Pending(CCDevicePortPipe& port) { return port.Pending(); }
    static std::int32_t Queued(CCDevicePortPipe& port) { return port.OutQueue.GetCount(); }
    static void Queue(CCDevicePortPipe& port, CSerialPortCommand* packet) { port.OutQueue.Push(packet); }
    static HANDLE NotEmptyEvent(const CCDevicePortPipe& port) { return port.OutQueue.GetNotEmptyEvent(); }
    /// RequestPipeRecreate in two steps, as another thread takes them that is interrupted between them.
    static void BeginPipeRecreateRequest(CCDevicePortPipe& port) { port.m_RecreateRequested = true; }
    static void EndPipeRecreateRequest(CCDevicePortPipe& port) { port.RecreateEvent.Set(); }
};

class PortPipe : public testing::Test
{
protected:
    using Access = CCDevicePortPipeTestAccess;
    using RecordingTrace = support::RecordingTrace;

    PortPipe();
    ~PortPipe() override;

    CCDevicePortPipe& Make(std::int32_t readSize = 4096, std::int32_t writeSize = 4096, PortOptions options = {});
    void Connect();
    void SendToClient(const std::string& payload);
    /// Answers every submitted packet as a transport does whose writes begin at once.
    void CompleteAtOnce();
    /// Writes a packet that the client does not read, and waits until it is in the pipe: from then on a flush blocks.
    void LeaveUnread();

    const std::string name = support::UniqueName("Port");
    const std::string fullName = "\\\\.\\pipe\\" + name;
    FakeTransport transport;
    std::unique_ptr<CCDevicePortPipe> port;
    support::PipeClient client;
};
