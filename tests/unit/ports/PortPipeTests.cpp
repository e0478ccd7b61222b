#include "tests/unit/ports/CountedCommand.h"
#include "tests/unit/ports/PortPipeFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

namespace {

class PortPipeLate : public PortPipe
{
protected:
    /// Answers so many packets from a thread of its own, late enough to find the port's next read pending. Join
    /// it.
    void CompleteLate(win32::Thread& completer, std::size_t packets)
    {
        completer.Start([this, packets] {
            for (std::size_t packet = 0; packet < packets; ++packet) {
                if (!support::WaitUntil([&] { return transport.Count() > packet; })) {
                    return; // the test tells
                }
                ::Sleep(2); // the time a write may take to begin: what is simulated, not what is waited for
                port->PacketCompleted();
            }
        });
    }
};

TEST_F(PortPipe, HandsEachRequestToTheTransportUnderItsAddress)
{
    Make();
    CompleteAtOnce();
    Connect();
    ASSERT_TRUE(client.Write("measure"));
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
    EXPECT_EQ(transport.TheSent()[0].x, 3);
    EXPECT_EQ(transport.TheSent()[0].y, 1);
    EXPECT_EQ(transport.TheSent()[0].payload, "measure");
}

TEST_F(PortPipe, OnlyTheLowByteOfEachAddressElementGoesToTheTransport)
{
    port = std::make_unique<InspectedPort>(&transport, PortAddress{0x103, 0x205}, name, 64, 64);
    port->OnMessage("x");
    ASSERT_EQ(transport.Count(), 1u);
    EXPECT_EQ(transport.TheSent()[0].x, 3);
    EXPECT_EQ(transport.TheSent()[0].y, 5);
}

TEST_F(PortPipe, WritesEachPacketToTheClientAsOneMessageInOrder)
{
    Make();
    Connect();
    SendToClient("first");
    SendToClient("second one");
    EXPECT_EQ(client.Read(), "first");
    EXPECT_EQ(client.Read(), "second one");
}

TEST_F(PortPipe, TracesPacketsInBothDirectionsWithTheirDump)
{
    RecordingTrace::WantDumps(true);
    Make();
    Connect();
    ASSERT_TRUE(client.Write("AB"));
    EXPECT_TRUE(RecordingTrace::WaitForLine("DEV->PCR[03,01][002] text 41 42"));
    SendToClient("C");
    EXPECT_TRUE(RecordingTrace::WaitForLine("DEV<-PCR[03,01][001] text 43"));
}

TEST_F(PortPipe, WithoutAReadBufferThePipeNeverCountsAsConnected)
{
    Make(0);
    // An open may fall into the moment of a re-creation, and then no thread notices it.
    ASSERT_TRUE(support::WaitUntil([&] {
        return client.Open(name) &&
               RecordingTrace::WaitForLine("CCDevicePortPipe::PipeProcessThread (" + fullName + ") Connected",
                                           std::chrono::milliseconds(200));
    }));
    // Not connected, the pipe is recreated: the client is thrown out.
    EXPECT_TRUE(client.WaitForBreak());
    EXPECT_FALSE(port->IsPipeConnected());
    SendToClient("lost");
    SendToClient("lost too");
    EXPECT_EQ(RecordingTrace::Count("DEV<-PCR[03,01] ** NO_CONNECTION **"), 2u);
    EXPECT_EQ(RecordingTrace::Count("CCDevicePortPipe::Send() NO device connection, ignore all incoming  request"),
              2u);
    EXPECT_EQ(RecordingTrace::Count("Pipe connected"), 0u);
}

TEST_F(PortPipe, AnEmptyPipeNameEndsTheWorkerAtOnceWithoutATrace)
{
    port = std::make_unique<InspectedPort>(&transport, PortAddress{3, 1}, "", 64, 64);
    port.reset();
    EXPECT_TRUE(RecordingTrace::Lines().empty());
}

TEST_F(PortPipe, WithoutADeviceNoPipeIsCreatedAndTheFirstHasNumberZero)
{
    transport.ready = false;
    Make();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Started (" + fullName + ")"));
    EXPECT_FALSE(client.TryOpen(name));
    EXPECT_EQ(client.Error(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(RecordingTrace::Count("Pipe Created"), 0u);
    transport.ready = true;
    port->RequestPipeRecreate();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Pipe Created"));
    EXPECT_EQ(RecordingTrace::Count("(" + fullName + ") Pipe Created 0 th time, waiting for connection..."), 1u);
}

TEST_F(PortPipe, WithoutAClientThePipeIsCreatedAgainAndAgain)
{
    Make();
    EXPECT_TRUE(RecordingTrace::WaitForLine("Pipe Created 3 th time"));
}

TEST_F(PortPipe, AMessageOfLengthZeroIsNotSubmittedAndNotCounted)
{
    Make();
    EXPECT_FALSE(port->OnMessage(""));
    EXPECT_EQ(transport.Count(), 0u);
    EXPECT_EQ(port->Pending(), 0);
}

TEST_F(PortPipe, ARequestWithoutADeviceConnectionIsDroppedWithAWarning)
{
    Make();
    transport.ready = false;
    EXPECT_FALSE(port->OnMessage("x"));
    EXPECT_EQ(RecordingTrace::Count("Warning: Packet ignored"), 1u);
    EXPECT_EQ(port->Pending(), 0);
}

TEST_F(PortPipe, APacketFromASimulationIsDropped)
{
    Make();
    port->Send(nullptr, {reinterpret_cast<const std::uint8_t*>("x"), 1});
    EXPECT_EQ(RecordingTrace::Count("CCDevicePortPipe::Send() ignored simulation packet in non-simulation mode"),
              1u);
}

TEST_F(PortPipe, AClientThatLeavesIsReplacedByTheNext)
{
    Make();
    CompleteAtOnce();
    Connect();
    client.Close();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Read Pipe Broken (109)"));
    Connect();
    ASSERT_TRUE(client.Write("again"));
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
}

TEST_F(PortPipe, AClientThatWritesAndLeavesAtOnceIsHeardAndReplaced)
{
    Make();
    CompleteAtOnce();
    for (std::size_t round = 1; round <= 20; ++round) {
        Connect();
        ASSERT_TRUE(client.Write("last words"));
        client.Close();
        ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == round; })) << round;
        ASSERT_TRUE(support::WaitUntil([&] { return !port->IsPipeConnected(); })) << round;
    }
}

TEST_F(PortPipe, AMessageThatIsReadBeforeTheConnectionIsNoticedIsNotLost)
{
    // A new port has its first read enabled, so that read may begin between the client's coming and the port's
    // noticing it. Which rounds hit that moment is chance; in every one of them the message has to arrive.
    for (std::size_t round = 1; round <= 40; ++round) {
        Make();
        CompleteAtOnce();
        // A client that opens in the moment of a recreation is thrown out, and tries again.
        ASSERT_TRUE(support::WaitUntil([&] {
            EXPECT_TRUE(client.Open(name));
            client.Write("first");
            EXPECT_TRUE(support::WaitUntil([&] { return transport.Count() == round || ClientIsOut(); })) << round;
            return transport.Count() == round;
        }));
        client.Close();
        port.reset();
    }
}

TEST_F(PortPipe, AClientThatDoesNotReadIsDeniedWritesAndLosesNothing)
{
    Make(64);
    Connect();
    constexpr std::size_t Long = 60'000; // Windows may give the pipe a buffer larger than asked for
    for (int packet = 0; packet < 40; ++packet) {
        SendToClient(std::string(Long, static_cast<char>('A' + packet % 26)));
    }
    ASSERT_TRUE(RecordingTrace::WaitForLine("Write permission denied, "));
    for (int packet = 0; packet < 40; ++packet) {
        ASSERT_EQ(client.Read(), std::string(Long, static_cast<char>('A' + packet % 26))) << packet;
    }
}

TEST_F(PortPipe, AFullBufferCostsAReadingClientNoHundredMilliseconds)
{
    Make(64);
    Connect();
    constexpr int Packets = 200; // one fills the pipe's buffer
    for (int packet = 0; packet < Packets; ++packet) {
        SendToClient(std::string(60, static_cast<char>('A' + packet % 26)));
    }
    for (int packet = 0; packet < Packets; ++packet) {
        ASSERT_EQ(client.Read(), std::string(60, static_cast<char>('A' + packet % 26))) << packet;
    }
    // On a busy machine the client may be slow now and then.
    EXPECT_LT(RecordingTrace::Count("Write permission denied, "), static_cast<std::size_t>(Packets / 10));
}

TEST_F(PortPipe, AQueueThatIsSetLateOverNothingIsReset)
{
    Make();
    Connect();
    ::SetEvent(port->Queue().GetNotEmptyEvent());
    EXPECT_TRUE(support::WaitUntil(
        [&] { return ::WaitForSingleObject(port->Queue().GetNotEmptyEvent(), 0) == WAIT_TIMEOUT; }));
    SendToClient("still there");
    EXPECT_EQ(client.Read(), "still there");
    EXPECT_EQ(RecordingTrace::Count("Write permission denied"), 0u);
}

TEST_F(PortPipe, ServesOnAfterCallsFromOtherThreads)
{
    Make();
    win32::Thread sender;
    sender.Start([&] {
        for (int packet = 0; packet < 500; ++packet) {
            SendToClient("packet");
            port->PacketCompleted();
            port->RequestPipeRecreate();
        }
    });
    sender.Join();
    CompleteAtOnce();
    // The last request may still throw a first client out.
    ASSERT_TRUE(support::WaitUntil([&] {
        Connect();
        return client.Write("after it") &&
               support::WaitUntil([&] { return transport.Count() > 0; }, std::chrono::milliseconds(500));
    }));
    EXPECT_EQ(transport.TheSent()[0].payload, "after it");
}

TEST_F(PortPipeLate, ARequestDoesNotCostThePortAHundredMilliseconds)
{
    Make();
    win32::Thread completer;
    CompleteLate(completer, 50);
    Connect();
    const ULONGLONG begin = ::GetTickCount64();
    for (std::size_t request = 1; request <= 50; ++request) {
        ASSERT_TRUE(client.Write("request"));
        ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == request; }));
    }
    const ULONGLONG elapsed = ::GetTickCount64() - begin;
    completer.Join();
    // 49 requests would cost 4.9 s were each to wait out the 100 ms.
    EXPECT_LT(elapsed, 2'500u);
}

TEST_F(PortPipeLate, RequestsInARowDoNotWaitForEachOther)
{
    // Each fills the read buffer, so that none are merged.
    constexpr std::size_t Requests = 50;
    Make(16);
    win32::Thread completer;
    CompleteLate(completer, Requests);
    Connect();
    const ULONGLONG begin = ::GetTickCount64();
    for (std::size_t request = 0; request < Requests; ++request) {
        ASSERT_TRUE(client.Write(std::string(16, static_cast<char>('A' + request % 26))));
    }
    EXPECT_TRUE(support::WaitUntil([&] { return transport.Count() == Requests; }));
    const ULONGLONG elapsed = ::GetTickCount64() - begin;
    completer.Join();
    EXPECT_LT(elapsed, 2'500u); // 49 would cost 4.9 s were each to wait out the 100 ms
    const auto sent = transport.TheSent();
    for (std::size_t request = 0; request < sent.size(); ++request) {
        EXPECT_EQ(sent[request].payload, std::string(16, static_cast<char>('A' + request % 26))) << request;
    }
}

} // namespace
