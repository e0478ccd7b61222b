#include "tests/unit/ports/CountedCommand.h"
#include "tests/unit/ports/PortPipeFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

namespace {

/// Milliseconds that a thread has run.
ULONGLONG ProcessorTime(HANDLE thread)
{
    FILETIME unused{};
    FILETIME kernel{};
    FILETIME user{};
    ::GetThreadTimes(thread, &unused, &unused, &kernel, &user);
    const auto milliseconds = [](const FILETIME& time) {
        return ((ULONGLONG{time.dwHighDateTime} << 32) | time.dwLowDateTime) / 10'000;
    };
    return milliseconds(kernel) + milliseconds(user);
}

class PortPipeLate : public PortPipe
{
protected:
    /// Answers so many packets from a thread of its own, late enough to find the port's next read under way. Join it.
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
    port = std::make_unique<CCDevicePortPipe>(&transport, 0x103, 0x205, name, 64, 64);
    Access::OnPipePacket(*port, "x");
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

TEST_F(PortPipe, WithReadBufferSizeZeroThePipeIsThereButNeverCountsAsConnectedAndEverySendSaysNoConnection)
{
    Make(0);
    // An open may fall into the moment of a re-creation, and then nobody notices it.
    ASSERT_TRUE(support::WaitUntil([&] {
        return client.Open(name) &&
               RecordingTrace::WaitForLine("CCDevicePortPipe::PipeProcessThread (" + fullName + ") Connected",
                                           std::chrono::milliseconds(200));
    }));
    // Not connected, the pipe is created anew: the client is thrown out.
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
    port = std::make_unique<CCDevicePortPipe>(&transport, 3, 1, "", 64, 64);
    port.reset();
    EXPECT_TRUE(RecordingTrace::Lines().empty());
}

TEST_F(PortPipe, WithoutADeviceConnectionNoPipeIsCreatedAndTheFirstOneAfterItCountsZero)
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

TEST_F(PortPipe, WhileNobodyConnectsThePipeIsCreatedAgainAndAgain)
{
    Make();
    EXPECT_TRUE(RecordingTrace::WaitForLine("Pipe Created 3 th time"));
}

TEST_F(PortPipe, AMessageOfLengthZeroIsNotSubmittedAndNotCounted)
{
    Make();
    EXPECT_FALSE(Access::OnPipePacket(*port, ""));
    EXPECT_EQ(transport.Count(), 0u);
    EXPECT_EQ(Access::Pending(*port), 0);
}

TEST_F(PortPipe, ARequestWithoutADeviceConnectionIsDroppedWithAWarning)
{
    Make();
    transport.ready = false;
    EXPECT_FALSE(Access::OnPipePacket(*port, "x"));
    EXPECT_EQ(RecordingTrace::Count("Warning: Packet ignored"), 1u);
    EXPECT_EQ(Access::Pending(*port), 0);
}

TEST_F(PortPipe, APacketFromASimulationIsDropped)
{
    Make();
    port->Send(nullptr, reinterpret_cast<const std::uint8_t*>("x"), 1);
    EXPECT_EQ(RecordingTrace::Count("CCDevicePortPipe::Send() ignored simulation packet in non-simulation mode"),
              1u);
}

TEST_F(PortPipe, After500UncompletedPacketsReadingStopsAndOneCompletionEnablesItAgain)
{
    Make(16);
    Connect();
    // Each message fills the read buffer, so that none are merged.
    const std::string message(16, 'm');
    for (int written = 0; written < 500; ++written) {
        ASSERT_TRUE(client.Write(message)) << client.Error() << " after " << written;
    }
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() >= 500; }));
    ASSERT_TRUE(support::WaitUntil([&] { return Access::Pending(*port) >= 500; }));

    // The read that completed last is handed over again and again, about every 100 ms.
    const std::size_t before = transport.Count();
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() >= before + 2; }));
    EXPECT_EQ(transport.TheSent().back().payload, transport.TheSent()[before - 1].payload);

    const std::string marker(16, 'z');
    ASSERT_TRUE(client.Write(marker));
    // No more completions than it takes: each enables reading, and a reading that is enabled again and again while a
    // read is in progress comes first, at 100 ms each.
    ASSERT_TRUE(support::WaitUntil([&] {
        if (Access::Pending(*port) >= 500) {
            port->PacketCompleted();
        }
        const auto sent = transport.TheSent();
        return sent.back().payload == marker;
    }));
}

TEST_F(PortPipe, StoppingAPortWithAConnectedClientSaysSoAndEmptiesItsQueue)
{
    Make();
    int destroyed = 0;
    transport.OnSend([&, stopped = port.get()] {
        EXPECT_TRUE(support::WaitUntil([&] { return stopped->IsStopping(); }));
        Access::Queue(*stopped, new CountedCommand(destroyed));
    });
    Connect();
    ASSERT_TRUE(client.Write("last request"));
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
    port.reset();
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(RecordingTrace::Count("(" + fullName + ") PipeProcessThread shutting down..."), 1u);
    EXPECT_EQ(RecordingTrace::Count("CCDevicePortPipe::PipeProcessThread Ended (" + fullName + ")"), 1u);
    EXPECT_TRUE(client.WaitForBreak());
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

TEST_F(PortPipe, AConnectEventThatNeverCameIsMadeUpForByTheFirstMessage)
{
    // The line about the created pipe stands between creating it and waiting for the client: a client that comes
    // just then is connected without an event.
    bool opened = false;
    RecordingTrace::OnLine([&](const std::string& line) {
        if (!opened && line.find("Pipe Created 0 th time") != std::string::npos) {
            opened = client.TryOpen(name) && client.Write("early");
        }
    });
    Make();
    ASSERT_TRUE(RecordingTrace::WaitForLine("CCDevicePortPipe::PipeProcessThread (" + fullName +
                                            ") Pipe connect event NEVER received, compensating"));
    EXPECT_TRUE(opened);
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
    EXPECT_TRUE(port->IsPipeConnected());
    SendToClient("welcome");
    EXPECT_EQ(client.Read(), "welcome");
}

TEST_F(PortPipe, AMessageThatIsReadBeforeTheConnectionIsNoticedIsNotLost)
{
    // A new port has its first read enabled, so that read may begin between the client's coming and the port's
    // noticing it. Which rounds hit that moment is chance; in every one of them the message has to arrive.
    for (std::size_t round = 1; round <= 150; ++round) {
        Make();
        CompleteAtOnce();
        ASSERT_TRUE(client.Open(name));
        ASSERT_TRUE(client.Write("first"));
        ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == round; }, std::chrono::seconds(5)))
            << round;
        client.Close();
        port.reset();
    }
}

TEST_F(PortPipe, AClientThatDoesNotReadIsDeniedWritePermissionAndLosesNothing)
{
    Make(64);
    Connect();
    for (int packet = 0; packet < 40; ++packet) {
        SendToClient(std::string(60, static_cast<char>('A' + packet % 26)));
    }
    ASSERT_TRUE(RecordingTrace::WaitForLine("Write permission denied, "));
    for (int packet = 0; packet < 40; ++packet) {
        ASSERT_EQ(client.Read(), std::string(60, static_cast<char>('A' + packet % 26))) << packet;
    }
}

TEST_F(PortPipe, AClientThatReadsGetsManyPacketsWithoutAHundredMillisecondsForEachFullBuffer)
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

TEST_F(PortPipe, AQueueThatIsSetLateOverNothingIsSettled)
{
    Make();
    Connect();
    ::SetEvent(Access::NotEmptyEvent(*port));
    EXPECT_TRUE(support::WaitUntil(
        [&] { return ::WaitForSingleObject(Access::NotEmptyEvent(*port), 0) == WAIT_TIMEOUT; }));
    SendToClient("still there");
    EXPECT_EQ(client.Read(), "still there");
    EXPECT_EQ(RecordingTrace::Count("Write permission denied"), 0u);
}

TEST_F(PortPipe, AFurtherRequestDuringTheRecreationIsAnotherOne)
{
    Make();
    for (int round = 0; round < 20; ++round) {
        Connect();
        port->RequestPipeRecreate();
        EXPECT_TRUE(client.WaitForBreak());
        client.Close();
    }
}

TEST_F(PortPipe, RecreatingThePipeThrowsTheClientOutAndEmptiesTheQueue)
{
    Make();
    transport.OnSend([&] {
        SendToClient("too late");
        port->RequestPipeRecreate();
    });
    Connect();
    ASSERT_TRUE(client.Write("request"));
    EXPECT_TRUE(client.WaitForBreak());
    client.Close();
    Connect();
    SendToClient("welcome");
    EXPECT_EQ(client.Read(), "welcome") << "the last client's packets are not for this one";
}

TEST_F(PortPipe, ARequestIsHandedOverOnceThoughARecreationIsAskedForJustThen)
{
    // Several packets are pending, so that reading goes on by being enabled, and the read event still tells of the last.
    Make(16);
    std::atomic<std::size_t> handed{0};
    transport.OnSend([&] {
        if (++handed == 4) {
            Access::BeginPipeRecreateRequest(*port);
        }
    });
    Connect();
    for (const char request : {'a', 'b', 'c', 'd', 'e'}) {
        ASSERT_TRUE(client.Write(std::string(16, request)));
    }
    ASSERT_TRUE(support::WaitUntil([&] { return handed >= 5; }));
    EXPECT_EQ(transport.TheSent()[3].payload, std::string(16, 'd'));
    EXPECT_EQ(transport.TheSent()[4].payload, std::string(16, 'e'));
    Access::EndPipeRecreateRequest(*port);
    EXPECT_TRUE(client.WaitForBreak());
}

TEST_F(PortPipe, PortsComeAndGoWhilePacketsAndCompletionsArriveForThem)
{
    for (int round = 0; round < 20; ++round) {
        Make();
        win32::Thread sender;
        sender.Start([&] {
            for (int packet = 0; packet < 200; ++packet) {
                SendToClient("packet");
                port->PacketCompleted();
                port->RequestPipeRecreate();
            }
        });
        sender.Join();
        port.reset();
    }
    EXPECT_EQ(RecordingTrace::Count("PipeProcessThread Ended"), 20u);
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

TEST_F(PortPipeLate, RequestsInARowAreHandledAsSoonAsTheWriteOfTheOneBeforeHasBegun)
{
    // Each fills the read buffer, so that none are merged, and comes before the write of the one before has begun.
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

TEST_F(PortPipe, ARequestWaitsAHundredMillisecondsForAWriteThatDoesNotBeginAndIsHandledThen)
{
    Make(16);
    std::vector<ULONGLONG> times; // the port's thread writes, this one reads what the count says is there
    times.reserve(2);
    std::atomic<std::size_t> handed{0};
    transport.OnSend([&] {
        if (times.size() < 2) {
            times.push_back(::GetTickCount64());
        }
        ++handed;
    });
    Connect();
    ASSERT_TRUE(client.Write(std::string(16, 'a')));
    ASSERT_TRUE(client.Write(std::string(16, 'b')));
    ASSERT_TRUE(support::WaitUntil([&] { return handed >= 2; }));
    EXPECT_GE(times[1] - times[0], 80u); // the clock may tick in 16 ms
    EXPECT_EQ(transport.TheSent()[1].payload, std::string(16, 'b'));
}

TEST_F(PortPipe, ARequestThatIsHeldWhenTheClientIsThrownOutDoesNotHoldUpTheNextClient)
{
    Make(16);
    Connect();
    ASSERT_TRUE(client.Write(std::string(16, 'a')));
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
    port->RequestPipeRecreate();
    EXPECT_TRUE(client.WaitForBreak());
    client.Close();
    CompleteAtOnce();
    Connect();
    for (std::size_t request = 2; request <= 20; ++request) {
        ASSERT_TRUE(client.Write(std::string(16, 'b')));
        ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() >= request; })) << request;
    }
    EXPECT_EQ(transport.TheSent()[1].payload, std::string(16, 'b'));
}

TEST_F(PortPipe, AWriteThatBeganBeforeItsMessageWasThroughDoesNotLetTheNextButOneGoEarly)
{
    // The first packet is complete before the port asks for it, the second never.
    Make(16);
    std::vector<ULONGLONG> times;
    times.reserve(3);
    std::atomic<std::size_t> handed{0};
    transport.OnSend([&] {
        if (handed == 0) {
            port->PacketCompleted();
        }
        if (handed < 3) {
            times.push_back(::GetTickCount64());
            ++handed;
        }
    });
    Connect();
    ASSERT_TRUE(client.Write(std::string(16, 'a')));
    ASSERT_TRUE(support::WaitUntil([&] { return handed == 1; }));
    ASSERT_TRUE(client.Write(std::string(16, 'b')));
    ASSERT_TRUE(client.Write(std::string(16, 'c')));
    ASSERT_TRUE(support::WaitUntil([&] { return handed == 3; }));
    EXPECT_GE(times[2] - times[1], 80u); // the clock may tick in 16 ms
}

TEST_F(PortPipe, AClientThatIsGoneBeforeItsRequestIsThroughCostsThePortNoProcessorUntilItIsNoticed)
{
    // Its next read is refused at once, and what that means waits for a write that does not begin.
    constexpr int Rounds = 8;
    Make(16);
    const win32::Event handed(win32::Event::Kind::AutoReset);
    const win32::Event gone(win32::Event::Kind::AutoReset);
    std::vector<ULONGLONG> processor; // written by the port's thread between the two events
    transport.OnSend([&] {
        processor.push_back(ProcessorTime(::GetCurrentThread()));
        handed.Set();
        gone.Wait(20'000);
    });
    const ULONGLONG begin = ::GetTickCount64();
    for (int round = 0; round < Rounds; ++round) {
        Connect();
        ASSERT_TRUE(client.Write("last words"));
        ASSERT_TRUE(handed.Wait(20'000)) << round;
        client.Close();
        gone.Set();
        ASSERT_TRUE(support::WaitUntil([&] { return !port->IsPipeConnected(); })) << round;
    }
    const ULONGLONG elapsed = ::GetTickCount64() - begin;
    EXPECT_GT(elapsed, 80u * Rounds);
    EXPECT_LT(processor.back() - processor.front(), elapsed / 4);
}

} // namespace
