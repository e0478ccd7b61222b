// Channel and class of the lines that a port traces.
#include "tests/unit/ports/PortPipeFixture.h"

#include <string>

namespace {

constexpr std::int32_t Router = -1;
constexpr std::uint32_t PacketClass = 0x20002;
constexpr std::uint32_t PipeClass = 0x40004;

using PortPipeTraces = PortPipe;

TEST_F(PortPipeTraces, ALifeWithAClient)
{
    const std::string worker = "CCDevicePortPipe::PipeProcessThread ";
    Make();
    Connect();
    client.Close();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Read Pipe Broken"));
    Connect();
    port.reset();
    EXPECT_TRUE(Traced(worker + "Started (" + fullName + ")", 3, PipeClass));
    EXPECT_TRUE(Traced("(" + fullName + ") Pipe Created 0 th time, waiting for connection...", 3, PipeClass));
    EXPECT_TRUE(Traced(worker + "(" + fullName + ") Connected", 3, PipeClass));
    EXPECT_TRUE(Traced("(" + fullName + ") Pipe connected", 3, PipeClass));
    EXPECT_TRUE(Traced(worker + "(" + fullName + ") Read Pipe Broken (109)", 3, PipeClass));
    EXPECT_TRUE(Traced("(" + fullName + ") PipeProcessThread shutting down...", 3, PipeClass));
    EXPECT_TRUE(Traced(worker + "Ended (" + fullName + ")", 3, PipeClass));
}

TEST_F(PortPipeTraces, PacketsInBothDirections)
{
    RecordingTrace::WantDumps(true);
    Make();
    Connect();
    ASSERT_TRUE(client.Write("AB"));
    SendToClient("C");
    EXPECT_EQ(client.Read(), "C");
    ASSERT_TRUE(RecordingTrace::WaitForLine("DEV->PCR"));
    ASSERT_TRUE(RecordingTrace::WaitForLine("DEV<-PCR"));
    EXPECT_TRUE(Traced("DEV->PCR[03,01][002] text 41 42", 3, PacketClass));
    EXPECT_TRUE(Traced("DEV<-PCR[03,01][001] text 43", 3, PacketClass));
}

TEST_F(PortPipeTraces, PacketsThatAreDropped)
{
    transport.ready = false;
    Make();
    SendToClient("dropped");
    port->Send(nullptr, {reinterpret_cast<const std::uint8_t*>("x"), 1});
    port->OnMessage("x");
    EXPECT_TRUE(
        Traced("CCDevicePortPipe::Send() NO device connection, ignore all incoming  request", Router, PipeClass));
    EXPECT_TRUE(Traced("DEV<-PCR[03,01] ** NO_CONNECTION **", 3, PacketClass));
    EXPECT_TRUE(Traced("CCDevicePortPipe::Send() ignored simulation packet in non-simulation mode", 3, PipeClass));
    EXPECT_TRUE(Traced("Warning: Packet ignored", 3, PacketClass));
}

TEST_F(PortPipeTraces, AClientThatDoesNotRead)
{
    Make(64);
    Connect();
    for (int packet = 0; packet < 3; ++packet) {
        SendToClient(std::string(60'000, 'x'));
    }
    ASSERT_TRUE(RecordingTrace::WaitForLine("Write permission denied"));
    // Windows may give the pipe a buffer larger than asked for, which takes the first.
    const std::string denied = "CCDevicePortPipe::PipeProcessThread(" + fullName + ") Write permission denied, ";
    EXPECT_TRUE(Traced(denied + "1 To-Device packets, 0 From-Device packets", 3, PipeClass) ||
                Traced(denied + "2 To-Device packets, 0 From-Device packets", 3, PipeClass));
}

} // namespace
