// What becomes of client, packets and messages when a port is stopped or its pipe is created again.
#include "tests/unit/ports/CountedCommand.h"
#include "tests/unit/ports/PortPipeFixture.h"

#include <atomic>
#include <string>
#include <vector>

namespace {

/// Where the first line with `part` in it stands; a number above all when there is none.
std::size_t PlaceOf(const std::string& part)
{
    const std::vector<std::string> lines = support::RecordingTrace::Texts();
    std::size_t place = 0;
    while (place < lines.size() && lines[place].find(part) == std::string::npos) {
        ++place;
    }
    return place;
}

using PortPipeRecreated = PortPipe;
using PortPipeStopped = PortPipe;

TEST_F(PortPipeStopped, HandsOverTheMessageThatItHasRead)
{
    Make();
    Connect();
    ASSERT_TRUE(client.Write("first"));
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
    std::atomic<bool> connectedThen{false};
    transport.OnSend([&, stopped = port.get()] { connectedThen = stopped->IsPipeConnected(); });
    WhileWriting([&] {
        ASSERT_TRUE(client.Write("second"));
        port->BeginStop(1);
    });
    port.reset();
    ASSERT_EQ(transport.Count(), 2u);
    EXPECT_EQ(transport.TheSent()[1].payload, "second");
    EXPECT_TRUE(connectedThen) << "handed over before the port counts as disconnected";
    EXPECT_LT(PlaceOf("[006] text 73 65 63 6F 6E 64"), PlaceOf("shutting down..."));
}

TEST_F(PortPipeRecreated, HandsOverTheMessageThatItHasRead)
{
    Make();
    Connect();
    ASSERT_TRUE(client.Write("first"));
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
    WhileWriting([&] {
        ASSERT_TRUE(client.Write("second"));
        port->RequestPipeRecreate();
    });
    EXPECT_TRUE(client.WaitForBreak());
    ASSERT_EQ(transport.Count(), 2u);
    EXPECT_EQ(transport.TheSent()[1].payload, "second");
}

TEST_F(PortPipeRecreated, IgnoresAMessageOfAnEarlierConnection)
{
    Make();
    Connect();
    WhileWriting([&] {
        ASSERT_TRUE(client.Write("too late"));
        transport.ready = false;
        port->RequestPipeRecreate();
        transport.ready = true; // the instrument is there again before the port has looked
    });
    EXPECT_TRUE(client.WaitForBreak());
    EXPECT_EQ(transport.Count(), 0u);
    EXPECT_TRUE(Traced("Warning: Packet ignored", 3, 0x20002));
    client.Close();
    Connect();
    ASSERT_TRUE(client.Write("in time"));
    EXPECT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
}

TEST_F(PortPipeStopped, DoesNotRepeatTheLastMessageAtTheLimit)
{
    Make(16);
    Connect();
    for (int pending = 0; pending < 499; ++pending) {
        port->OnMessage("pending");
    }
    transport.OnSend([&, stopped = port.get()] {
        // The one at the limit: the port is told to stop while it is being handed over.
        stopped->BeginStop(1);
    });
    ASSERT_TRUE(client.Write("the last"));
    ASSERT_TRUE(RecordingTrace::WaitForLine("Ended"));
    port.reset();
    ASSERT_EQ(transport.Count(), 500u);
    EXPECT_EQ(transport.TheSent()[499].payload, "the last");
}

TEST_F(PortPipeStopped, SaysSoAndEmptiesItsQueue)
{
    RecordingTrace::WantDumps(true); // a packet that is written is traced
    Make();
    int destroyed = 0;
    transport.OnSend([&, stopped = port.get()] {
        stopped->BeginStop(1);
        stopped->Queue().Push(std::make_unique<CountedCommand>(destroyed));
    });
    Connect();
    ASSERT_TRUE(client.Write("last request"));
    ASSERT_TRUE(RecordingTrace::WaitForLine("PipeProcessThread Ended"));
    EXPECT_EQ(destroyed, 1) << "by the worker; the port's own end comes later";
    port.reset();
    EXPECT_EQ(RecordingTrace::Count("(" + fullName + ") PipeProcessThread shutting down..."), 1u);
    EXPECT_EQ(RecordingTrace::Count("CCDevicePortPipe::PipeProcessThread Ended (" + fullName + ")"), 1u);
    EXPECT_EQ(RecordingTrace::Count("DEV<-PCR"), 0u) << "the packet was not written";
}

TEST_F(PortPipeRecreated, ThrowsTheClientOutAndEmptiesTheQueue)
{
    Make();
    int destroyed = 0;
    transport.OnSend([&] {
        port->Queue().Push(std::make_unique<CountedCommand>(destroyed));
        port->RequestPipeRecreate();
    });
    Connect();
    ASSERT_TRUE(client.Write("request"));
    EXPECT_FALSE(client.Read()) << "the packet was not written";
    EXPECT_NE(client.Error(), static_cast<DWORD>(WAIT_TIMEOUT));
    ASSERT_TRUE(RecordingTrace::WaitForLine("Pipe Created 1 th time"));
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(port->Queue().GetCount(), 0);
    client.Close();
    Connect();
    SendToClient("welcome");
    EXPECT_EQ(client.Read(), "welcome") << "the last client's packets are not for this one";
}

TEST_F(PortPipeRecreated, ARequestDuringItIsAnotherOne)
{
    Make();
    // Without a client the pipe is created every 50 ms. The line about it stands inside the re-creation; a
    // client that comes there is the end of it, but for the request.
    std::atomic<int> created{0};
    RecordingTrace::OnLine([&](const std::string& line) {
        if (line.find("Pipe Created") != std::string::npos && ++created == 1) {
            port->RequestPipeRecreate();
            client.TryOpen(name);
        }
    });
    ASSERT_TRUE(support::WaitUntil([&] { return created >= 2; }));
    EXPECT_TRUE(client.IsOpen());
    EXPECT_EQ(RecordingTrace::Count("Pipe connected"), 0u) << "the second came before anything else";
}

TEST_F(PortPipeRecreated, AnAnnouncedRequestComesBeforeABrokenRead)
{
    // Another thread has asked for a re-creation and not signalled its event yet; just then the client closes.
    Make();
    transport.OnSend([&] {
        port->AnnounceRecreation();
        client.Close();
    });
    Connect();
    const std::size_t before = RecordingTrace::Count("Pipe Created");
    ASSERT_TRUE(client.Write("last words"));
    ASSERT_TRUE(support::WaitUntil([&] { return RecordingTrace::Count("Pipe Created") > before; }));
    EXPECT_EQ(RecordingTrace::Count("Read Pipe Broken"), 0u);
}

TEST_F(PortPipeRecreated, LooksForTheInstrumentEverySecond)
{
    transport.ready = false;
    Make();
    ASSERT_TRUE(support::WaitUntil([&] { return transport.AskedAt().size() >= 2; }));
    const auto asked = transport.AskedAt();
    EXPECT_GE(asked[1] - asked[0], 980u); // the clock may tick in 16 ms
}

TEST_F(PortPipeRecreated, IsToldOfAnInstrumentThatIsThereAgain)
{
    transport.ready = false;
    Make();
    ASSERT_TRUE(support::WaitUntil([&] { return !transport.AskedAt().empty(); }));
    transport.ready = true;
    EXPECT_TRUE(RecordingTrace::WaitForLine("Pipe Created 0 th time"));
}

} // namespace
