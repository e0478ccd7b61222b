// A real port with a transport of the test's own and a client, for the tests of ports.
#pragma once

#include "ports/CCDevicePortPipe.h"
#include "tests/support/PipeClient.h"
#include "tests/support/RecordingTrace.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/ports/FakeTransport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// A port whose inside tests can see.
class InspectedPort : public CCDevicePortPipe
{
public:
    using CCDevicePortPipe::CCDevicePortPipe;

    bool OnMessage(const std::string& bytes)
    {
        return OnPipePacket({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    }
    std::int32_t Pending() { return m_state.Pending.Count(); }
    CCommandQueue& Queue() { return m_state.OutQueue; }
    /// What RequestPipeRecreate does before it signals the event. On the port's thread, in one of its hooks.
    void AnnounceRecreation()
    {
        m_state.RecreateEvent.Disarm();
        m_state.RecreateEvent.Set();
    }
};

class PortPipe : public testing::Test
{
protected:
    using RecordingTrace = support::RecordingTrace;

    PortPipe();
    ~PortPipe() override;

    InspectedPort& Make(std::int32_t readSize = 4096, std::int32_t writeSize = 4096, PortOptions options = {});
    void Connect();
    /// Whether the port has closed the pipe that the client has open.
    bool ClientIsOut();
    void SendToClient(const std::string& payload);
    /// Answers every submitted packet as a transport does whose writes begin at once.
    void CompleteAtOnce();
    /// Lets the port's thread write a packet to the client and holds it there, with its next read started, while
    /// `action` runs on the calling thread. Switches dumps on.
    void WhileWriting(const std::function<void()>& action);
    /// Whether a line of exactly this text was traced on this channel and under this class.
    static testing::AssertionResult Traced(const std::string& text, std::int32_t device, std::uint32_t classMask);
    /// Writes a packet that the client does not read, and waits until it is in the pipe: from then on a flush
    /// blocks.
    void LeaveUnread();

    const std::string name = support::UniqueName("Port");
    const std::string fullName = "\\\\.\\pipe\\" + name;
    FakeTransport transport;
    std::unique_ptr<InspectedPort> port;
    support::PipeClient client;
};
