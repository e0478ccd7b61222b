#include "tests/support/Frames.h"
#include "tests/support/PatchedImport.h"
#include "tests/support/PerformanceClock.h"
#include "tests/support/RecordingTrace.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/transport/FakeHost.h"
#include "tests/unit/transport/Hooks.h"
#include "tests/unit/transport/OpenDriver.h"
#include "tests/unit/transport/ReplyPath.h"
#include "transport/ReadThreads.h"
#include "win32/OverlappedOperation.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <utility>
#include <vector>

namespace {

using support::Frame;
using support::RecordingTrace;

/// Serves the simulator's pipe in byte mode, in this process. The name is the product's own, so only one test
/// program may do this at a time on one machine; under Wine each has a machine of its own.
class Simulator
{
public:
    Simulator()
        : m_pipe(::CreateNamedPipeA("\\\\.\\pipe\\UsbPipeSimulator", PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                    PIPE_TYPE_BYTE | PIPE_WAIT, 1, 65'536, 65'536, 0, nullptr))
    {
        EXPECT_TRUE(m_pipe);
    }
    bool AwaitRouter()
    {
        m_nextNumber = 0;
        m_connect.ConnectPipe(m_pipe.Get());
        if (!m_connect.IsPending()) {
            return ::GetLastError() == ERROR_PIPE_CONNECTED;
        }
        DWORD unused = 0;
        return support::WaitFor(m_connect.EventHandle()) && m_connect.Finish(m_pipe.Get(), unused);
    }
    /// Reads until one whole frame is there.
    std::optional<std::string> ReadFrame()
    {
        for (;;) {
            const std::span bytes(reinterpret_cast<const std::uint8_t*>(m_received.data()), m_received.size());
            if (const auto frame = wire::ParseFrame(bytes)) {
                const std::string text = m_received.substr(0, frame->Length());
                m_received.erase(0, frame->Length());
                return text;
            }
            char buffer[4096];
            m_read.Read(m_pipe.Get(), buffer, sizeof buffer);
            DWORD length = 0;
            if ((m_read.IsPending() && !m_read.CompletedAtStart() && !support::WaitFor(m_read.EventHandle())) ||
                !m_read.Finish(m_pipe.Get(), length))
            {
                m_read.Cancel();
                return std::nullopt;
            }
            m_received.append(buffer, length);
        }
    }
    /// The next frame that is no idle packet. Those come after every quiet second, also in the middle of a test
    /// that a busy machine has stopped for that long. All frames since the last call to AwaitRouter count up from
    /// 0.
    std::optional<std::string> ReadRequest()
    {
        for (;;) {
            std::optional<std::string> frame = ReadFrame();
            if (!frame) {
                return std::nullopt;
            }
            EXPECT_EQ(static_cast<std::uint8_t>((*frame)[2]), m_nextNumber);
            if (*frame != Frame(m_nextNumber++, 238, 238, 238, "")) {
                return frame;
            }
        }
    }
    /// The number of the frame that ReadRequest returned last.
    std::uint8_t Number() const { return static_cast<std::uint8_t>(m_nextNumber - 1); }
    /// What ReadRequest returns for a payload of port (3, 1).
    bool NextRequestIs(const std::string& payload)
    {
        const std::optional<std::string> frame = ReadRequest();
        return frame && *frame == Frame(Number(), 1, 3, 1, payload);
    }
    bool Write(const std::string& bytes)
    {
        DWORD length = 0;
        m_write.Write(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()));
        return (m_write.CompletedAtStart() || support::WaitFor(m_write.EventHandle())) &&
               m_write.Finish(m_pipe.Get(), length);
    }

private:
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_connect;
    win32::OverlappedOperation m_read;
    win32::OverlappedOperation m_write;
    std::string m_received;
    std::uint8_t m_nextNumber = 0;
};

class Simulation : public testing::Test
{
protected:
    Simulation()
    {
        host.AddPort(3, 1);
        RecordingTrace::Clear();
    }
    void StartDriver()
    {
        driver.emplace(true, host);
        driver->Reconnect();
    }
    /// In this order: a driver that has found its simulator before it is told to connect connects once more.
    void StartBoth()
    {
        StartDriver();
        simulator.emplace();
        AwaitConnection();
    }
    /// Numbering begins after the transport has said that it is connected. A packet that no port gets, read by the
    /// same thread, tells that it is through with connecting.
    void AwaitConnection()
    {
        const std::size_t before = RecordingTrace::Count("ApppendToReplyProcessQueue() 15 bytes");
        ASSERT_TRUE(simulator->AwaitRouter());
        ASSERT_TRUE(simulator->Write(Frame(0, 9, 0, 0, "?")));
        ASSERT_TRUE(RecordingTrace::WaitForLine("ApppendToReplyProcessQueue() 15 bytes", support::DefaultTimeout,
                                                before + 1));
    }
    void Send(const std::string& payload)
    {
        driver->Send(3, 1, reinterpret_cast<const std::uint8_t*>(payload.data()),
                     static_cast<std::uint32_t>(payload.size()));
    }

    FakeHost host;
    std::optional<Simulator> simulator;
    std::optional<OpenDriver> driver;
};

/// Windows promises no event for reads and writes that are done at once, so here they have none.
class SimulationAtOnce : public Simulation
{
protected:
    ~SimulationAtOnce() override
    {
        hooks::readsWithoutEvent = false;
        hooks::writesWithoutEvent = false;
        driver.reset();
    }
};

TEST_F(SimulationAtOnce, ReadsHaveTheirEnd)
{
    StartBoth();
    hooks::readsWithoutEvent = true;
    // From the second on the data is there before the transport's read.
    for (std::size_t round = 1; round <= 5; ++round) {
        ASSERT_TRUE(simulator->Write(Frame(static_cast<std::uint8_t>(round), 1, 3, 1, "reply")));
        ASSERT_TRUE(support::WaitUntil([&] { return host.Deliveries().size() == round; })) << round;
    }
}

TEST_F(SimulationAtOnce, WritesHaveTheirEnd)
{
    StartBoth();
    hooks::writesWithoutEvent = true;
    for (const char* const request : {"one", "two", "three", "four", "five"}) {
        Send(request);
        ASSERT_TRUE(simulator->NextRequestIs(request)) << request;
    }
    EXPECT_EQ(RecordingTrace::Count("incomplete"), 0u) << "a write that was done counts as pending";
}

TEST_F(Simulation, WithoutASimulatorNothingConnectsAndSentPacketsAreDropped)
{
    StartDriver();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Connection to USB failed"));
    EXPECT_FALSE(driver->IsConnected());
    EXPECT_FALSE(driver->IsReady());
    Send("lost");
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::Submit() No connection, ignore all incomcing  requests"), 1u);
}

TEST_F(Simulation, EveryTwentiethAttemptIsTraced)
{
    StartDriver();
    ASSERT_TRUE(
        RecordingTrace::WaitForLine("SimulationCommandProcessThread(21th try) looking for USB endpoints..."));
    std::vector<std::string> traced;
    for (const std::string& text : RecordingTrace::Texts()) {
        if (text.find("th try)") != std::string::npos) {
            traced.push_back(text);
        }
    }
    // By now there may be a third one, on a machine that was busy.
    ASSERT_GE(traced.size(), 2u);
    EXPECT_NE(traced[0].find("(1th try)"), std::string::npos) << traced[0];
    EXPECT_NE(traced[1].find("(21th try)"), std::string::npos) << traced[1];
    EXPECT_TRUE(RecordingTrace::WaitForLine("SimulationCommandProcessThread() 0 pending writes",
                                            support::DefaultTimeout, 2));
    EXPECT_GE(host.signals, 20);
}

TEST_F(Simulation, ASimulatorThatComesLaterIsFound)
{
    StartDriver();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Connection to USB failed"));
    simulator.emplace();
    ASSERT_TRUE(simulator->AwaitRouter());
    EXPECT_TRUE(support::WaitUntil([&] { return driver->IsReady(); }));
    EXPECT_EQ(RecordingTrace::Count("Connection to USB-Simulation opened (\\\\.\\pipe\\UsbPipeSimulator)"), 1u);
}

TEST_F(Simulation, CarriesPacketsBothWaysAndTellsThePortThatTheWriteBegan)
{
    StartBoth();
    Send("request");
    EXPECT_TRUE(simulator->NextRequestIs("request"));
    ASSERT_TRUE(simulator->Write(Frame(1, 1, 3, 1, "reply")));
    ASSERT_TRUE(support::WaitUntil([&] { return host.Deliveries().size() == 1; }));
    EXPECT_EQ(host.Deliveries()[0].payload, "reply");
    const auto completions = host.Completions();
    EXPECT_EQ(std::ranges::count(completions, PortAddress{3, 1}), 1);
}

TEST_F(Simulation, AnIdlePacketIsWrittenAfterEachQuietSecond)
{
    StartBoth();
    EXPECT_EQ(simulator->ReadFrame(), Frame(0, 238, 238, 238, ""));
    EXPECT_EQ(simulator->ReadFrame(), Frame(1, 238, 238, 238, ""));
}

TEST_F(Simulation, TheWriteTraceShows65535WhileTheCounterGrowsByTheRealCount)
{
    StartBoth();
    const std::uint32_t before = driver->GetTransferredBytes();
    Send("12345");
    ASSERT_TRUE(RecordingTrace::WaitForLine("SimulationCommandProcessThread overlapped write 65535 bytes"));
    // 14 bytes for each packet written, which may be more than this one: see ReadRequest.
    const auto written = [&] { return 14u * driver->m_outgoing.NextNumber() + 5u; };
    EXPECT_TRUE(support::WaitUntil([&] { return driver->GetTransferredBytes() - before == written(); }));
    ASSERT_TRUE(simulator->Write(Frame(1, 1, 3, 1, "1234567")));
    EXPECT_TRUE(support::WaitUntil([&] { return driver->GetTransferredBytes() - before == written() + 21; }));
}

TEST_F(Simulation, PacketsAreDumpedInBothDirectionsWhenTheirTracesAreWanted)
{
    RecordingTrace::WantDumps(true);
    StartBoth();
    Send("A");
    EXPECT_TRUE(RecordingTrace::WaitForLine("PCR->USB[15] text 23 23 "));
    ASSERT_TRUE(simulator->Write(Frame(1, 1, 3, 1, "B")));
    EXPECT_TRUE(RecordingTrace::WaitForLine("PCR<-USB[15] text 23 23 01 01"));
    EXPECT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::ApppendToReplyProcessQueue() 15 bytes"));
}

TEST_F(Simulation, AReturningSimulatorIsConnectedWithNumbersFrom0)
{
    StartBoth();
    Send("one");
    Send("two");
    EXPECT_TRUE(simulator->NextRequestIs("one"));
    EXPECT_TRUE(simulator->NextRequestIs("two"));
    ASSERT_TRUE(simulator->Write(Frame(200, 1, 3, 1, "number 200")));
    ASSERT_TRUE(support::WaitUntil([&] { return host.Deliveries().size() == 1; }));
    RecordingTrace::Clear();
    const int signals = host.signals;

    simulator.reset();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Reply-receive failed(109), reconnecting..."));
    EXPECT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::NotifyState(Not Connected)"));
    EXPECT_GT(host.signals, signals);
    simulator.emplace();
    AwaitConnection();
    EXPECT_TRUE(driver->IsReady());
    Send("three");
    EXPECT_TRUE(simulator->NextRequestIs("three"));
    // The numbering check starts again as well: 1 after 200 is no gap.
    ASSERT_TRUE(simulator->Write(Frame(1, 1, 3, 1, "number 1")));
    ASSERT_TRUE(support::WaitUntil([&] { return host.Deliveries().size() == 2; }));
    EXPECT_EQ(RecordingTrace::Count("Packet has packet number"), 0u);
}

TEST_F(Simulation, ASimulatorThatWritesAndVanishesAtOnceIsNoticedEveryTime)
{
    StartDriver();
    for (std::size_t round = 1; round <= 20; ++round) {
        simulator.emplace();
        ASSERT_TRUE(simulator->AwaitRouter());
        ASSERT_TRUE(simulator->Write(Frame(1, 1, 3, 1, "last words")));
        simulator.reset();
        ASSERT_TRUE(support::WaitUntil([&] { return host.Deliveries().size() == round; })) << round;
        ASSERT_TRUE(support::WaitUntil([&] { return !driver->IsConnected(); })) << round;
    }
    // By the read that follows, which is mostly refused. A write would notice it too, a quiet second later.
    EXPECT_GE(RecordingTrace::Count("Reply-receive failed("), 16u);
}

TEST_F(Simulation, ASimulatorThatStopsReadingIsTracedAndLosesNothing)
{
    StartBoth();
    const std::string payload(60'000, 'p');
    for (int packet = 0; packet < 4; ++packet) {
        Send(payload);
    }
    ASSERT_TRUE(RecordingTrace::WaitForLine("WARNING: Command queue not empty, but previous Write operation "
                                            "incomplete (TotalAborted=0)"));
    for (int packet = 0; packet < 4; ++packet) {
        ASSERT_TRUE(simulator->NextRequestIs(payload)) << packet;
    }
}

TEST_F(Simulation, StoppingWithPendingWritesAndReadsEndsAllThreads)
{
    StartBoth();
    for (int packet = 0; packet < 8; ++packet) {
        Send(std::string(60'000, 'p'));
    }
    driver.reset();
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::SimulationCommandProcessThread() ended"), 1u);
}

TEST_F(Simulation, AQueueThatIsSetLateOverNothingIsReset)
{
    StartBoth();
    driver->SetNotEmptyLate();
    EXPECT_TRUE(support::WaitUntil([&] { return !driver->IsNotEmptySet(); }));
    EXPECT_EQ(RecordingTrace::Count("Command queue not empty"), 0u);
}

TEST_F(Simulation, ThereIsNoHostWatch)
{
    host.standalone = false;
    StartBoth();
    EXPECT_EQ(simulator->ReadFrame(), Frame(0, 238, 238, 238, "")); // a quiet second has passed
    EXPECT_EQ(RecordingTrace::Count("Host application does not exist"), 0u);
}

TEST_F(Simulation, TheQuietTraceNamesPendingWriteInTheSingular)
{
    StartBoth();
    EXPECT_TRUE(RecordingTrace::WaitForLine("SimulationCommandProcessThread() IDLE, Number of pending write: "));
    EXPECT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::ReplyProcessThread()IDLE"));
}

/// The second way of reading a pipe: by a thread of its own.
class PipeReadThread : public SimulationAtOnce
{
protected:
    PipeReadThread()
    {
        simulator.emplace();
        pipe.Reset(::CreateFileA(R"(\\.\pipe\UsbPipeSimulator)", GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                 OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
        EXPECT_TRUE(replies.Start([this] { path.replies.ReplyProcessThread(); }));
    }
    ~PipeReadThread() override
    {
        path.connection.m_hStop.Set();
        path.replies.Interrupt();
    }
    void Read(HANDLE from) { ReadThreads::SimulationReadWaitThread(path.connection, path.replies, from); }

    win32::FileHandle pipe;
    ReplyPath path{host};
    win32::Thread replies;
    win32::Thread reader;
};

TEST_F(PipeReadThread, ReadsUntilItIsStopped)
{
    ASSERT_TRUE(reader.Start([this] { Read(pipe.Get()); }));
    ASSERT_TRUE(simulator->Write(Frame(1, 1, 3, 1, "read by the thread")));
    ASSERT_TRUE(support::WaitUntil([&] { return host.Deliveries().size() == 1; }));
    path.connection.m_hStopRead.Set();
    reader.Join();
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::SimulationReadWaitThread() started"), 1u);
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::SimulationReadWaitThread() ended"), 1u);
}

TEST_F(PipeReadThread, WithoutAPipeEndsAtOnce)
{
    Read(INVALID_HANDLE_VALUE);
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::SimulationReadWaitThread() started"), 0u);
}

TEST_F(PipeReadThread, WithoutAnEventForItsReadsThrows)
{
    const support::PatchedImport patch("CreateEventW", reinterpret_cast<void*>(hooks::RefuseEvent));
    EXPECT_THROW(Read(pipe.Get()), std::bad_alloc);
}

TEST_F(PipeReadThread, WithoutAnEventForItsStopThrows)
{
    std::optional<ReplyPath> endless;
    {
        const support::PatchedImport patch("CreateEventW", reinterpret_cast<void*>(hooks::RefuseEvent));
        endless.emplace(host);
    }
    EXPECT_THROW(ReadThreads::SimulationReadWaitThread(endless->connection, endless->replies, pipe.Get()),
                 std::bad_alloc);
}

TEST_F(PipeReadThread, TracesAReadThatIsRefused)
{
    simulator.reset(); // from now on the pipe is broken
    ASSERT_TRUE(reader.Start([this] { Read(pipe.Get()); }));
    EXPECT_TRUE(RecordingTrace::WaitForLine("Reply-receive failed(109), reconnecting..."));
    path.connection.m_hStopRead.Set();
    reader.Join();
}

TEST_F(PipeReadThread, HasTheEndOfReadsThatAreDoneAtOnce)
{
    hooks::readsWithoutEvent = true;
    ASSERT_TRUE(reader.Start([this] { Read(pipe.Get()); }));
    for (std::size_t round = 1; round <= 3; ++round) {
        ASSERT_TRUE(simulator->Write(Frame(static_cast<std::uint8_t>(round), 1, 3, 1, "reply")));
        EXPECT_TRUE(support::WaitUntil([&] { return host.Deliveries().size() == round; })) << round;
    }
    hooks::readsWithoutEvent = false;
    path.connection.m_hStopRead.Set();
    reader.Join();
}

TEST_F(Simulation, AWriteThatIsRefusedIsTracedAndANewConnectionMade)
{
    StartBoth();
    const int signals = host.signals;
    hooks::refusedWrites = 1;
    Send("refused");
    ASSERT_TRUE(RecordingTrace::WaitForLine("Command-sent failed, reconnecting"));
    EXPECT_TRUE(support::WaitUntil([&] { return host.signals > signals; }))
        << "the ports hear of it after the line";
    simulator.reset();
    simulator.emplace();
    AwaitConnection();
    Send("after");
    EXPECT_TRUE(simulator->NextRequestIs("after"));
}

TEST_F(Simulation, AQuietSecondWarnsOfAWriteThatIsPending)
{
    StartBoth();
    const std::string payload(60'000, 'p');
    Send(payload);
    Send(payload); // the pipe has no room for it, and nothing waits for its end
    EXPECT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::SimulationCommandProcessThread() IDLE,  WARNING: Write "
                                            "operation incomplete (TotalAborted=0)"));
    EXPECT_TRUE(simulator->NextRequestIs(payload));
    EXPECT_TRUE(simulator->NextRequestIs(payload));
}

TEST_F(Simulation, AnExceptionIsTracedAndANewConnectionMade)
{
    host.throwsAtSignals = 2;
    StartBoth();
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::SimulationCommandProcessThread() failed, reconnecting"), 2u);
    Send("served");
    EXPECT_TRUE(simulator->NextRequestIs("served"));
}

TEST_F(Simulation, AFailedAttemptIsFollowedByTheNextAfterTenMilliseconds)
{
    std::optional<std::chrono::microseconds> failed; // the command thread's
    auto shortest = std::chrono::microseconds::max();
    RecordingTrace::OnLine([&](const std::string& line) {
        if (line == "Connection to USB failed") {
            failed = support::PerformanceTime();
        } else if (failed && line == "CCyUSBDriver::NotifyState(Not Connected)") {
            shortest = std::min(shortest, support::PerformanceTime() - *failed);
        }
    });
    StartDriver();
    EXPECT_TRUE(RecordingTrace::WaitForLine("Connection to USB failed", support::DefaultTimeout, 11));
    driver.reset();
    RecordingTrace::Clear();
    EXPECT_GE(shortest, std::chrono::milliseconds(9));
}

} // namespace
