// Clients that do not read, write without end or in bits, open a pipe for one direction, and leave at any moment.
#include "tests/support/ChildProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/UniqueName.h"
#include "tests/system/ServedPort.h"
#include "tests/system/hostile/HostileFixture.h"
#include "tests/system/hostile/RawPipe.h"
#include "win32/Thread.h"

#include <array>

namespace {

using hostile::Case;
using hostile::End;
using hostile::RawPipe;
using support::PipeClient;

constexpr DWORD Both = GENERIC_READ | GENERIC_WRITE;
constexpr std::chrono::milliseconds Shortly{50};

RawPipe& OpenRaw(End& end, DWORD access = Both, ULONG port = 1)
{
    auto& pipe = end.Hold(std::make_shared<RawPipe>());
    EXPECT_TRUE(pipe.Open(end.Register(port), access));
    return pipe;
}

/// Opened by a client that was answered, so that nothing of the opening is in the way.
PipeClient& OpenServed(End& end, ULONG port = 1)
{
    auto& client = end.Hold(std::make_shared<PipeClient>());
    end.Open(client, port);
    return client;
}

// --- reading

void NeverReads(End& end)
{
    PipeClient& client = OpenServed(end);
    for (int request = 0; request < 40; ++request) {
        ASSERT_TRUE(client.Write(std::string(5'000, 'n')));
    }
}

void ReadsOneByteAtATime(End& end)
{
    RawPipe& pipe = OpenRaw(end);
    ASSERT_TRUE(pipe.Write(std::string(300, 'r')));
    for (int byte = 0; byte < 300; ++byte) {
        pipe.StartReading(1);
        ASSERT_NE(pipe.HasRead(), 0u) << byte;
    }
}

void ReadsHalfAnAnswerAndLeaves(End& end)
{
    for (ULONG port = 1; port <= 5; ++port) {
        RawPipe& pipe = OpenRaw(end, Both, port);
        ASSERT_TRUE(pipe.Write(std::string(10'000, 'h')));
        pipe.StartReading(5'000);
        ASSERT_NE(pipe.HasRead(), 0u);
        pipe.Close();
    }
}

void LooksAndNeverTakes(End& end)
{
    PipeClient& client = OpenServed(end);
    ASSERT_TRUE(client.Write("look"));
    ASSERT_TRUE(support::WaitUntil([&] { return client.Available() == 4; }));
    for (int look = 0; look < 1000; ++look) {
        ASSERT_EQ(client.Available(), 4u);
    }
}

void CancelsEveryRead(End& end)
{
    RawPipe& pipe = OpenRaw(end);
    for (int read = 0; read < 300; ++read) {
        pipe.StartReading(100);
    }
}

void ReadsWithAReadPending(End& end)
{
    OpenRaw(end).StartReading(100);
}

// --- writing

void WritesAByteAtATime(End& end)
{
    PipeClient& client = OpenServed(end);
    for (int byte = 0; byte < 1000; ++byte) {
        ASSERT_TRUE(client.Write("b"));
    }
}

void WritesNothingOftenAndThenSomething(End& end)
{
    PipeClient& client = OpenServed(end);
    for (int message = 0; message < 200; ++message) {
        ASSERT_TRUE(client.Write(""));
    }
    ASSERT_TRUE(client.Write("something"));
    EXPECT_EQ(client.Read(), "something");
}

void Writes1MBAtOnce(End& end)
{
    RawPipe& pipe = OpenRaw(end);
    pipe.StartWriting(std::string(1u << 20, 'w'));
    std::size_t answered = 0;
    while (answered < 1u << 20) {
        pipe.StartReading(65'535);
        const DWORD length = pipe.HasRead();
        ASSERT_NE(length, 0u);
        answered += length;
    }
    EXPECT_TRUE(pipe.HasWritten());
}

void Writes1MBAndNeverReads(End& end)
{
    OpenRaw(end).StartWriting(std::string(1u << 20, 'w'));
}

void WritesMoreThanItsReadBuffer(End& end)
{
    auto& pipe = end.Hold(std::make_shared<RawPipe>());
    ASSERT_TRUE(pipe.Open(end.Register(1, 10, 10), Both));
    ASSERT_TRUE(pipe.Write(std::string(2'000, 'p')));
}

void WritesMoreThanAPacketHolds(End& end)
{
    // The length field takes the low 16 bits by design; what is beyond reaches the instrument as noise.
    auto& pipe = end.Hold(std::make_shared<RawPipe>());
    ASSERT_TRUE(pipe.Open(end.Register(1, 1 << 20, 1 << 20), Both));
    pipe.StartWriting(std::string(200'000, '\0'));
}

void SendsWhatLooksLikePackets(End& end)
{
    PipeClient& client = OpenServed(end);
    std::string forged;
    for (int count = 0; count < 100; ++count) {
        forged += support::Frame(1, wire::PortTraffic, 3, 1, "forged");
    }
    ASSERT_TRUE(client.Write(forged));
    EXPECT_EQ(client.Read(), forged);
}

void SendsSyncBytesOnly(End& end)
{
    PipeClient& client = OpenServed(end);
    const std::string hashes(30'000, '#');
    ASSERT_TRUE(client.Write(hashes));
    EXPECT_EQ(client.Read(), hashes);
}

void SendsFormatDirectives(End& end)
{
    PipeClient& client = OpenServed(end);
    ASSERT_TRUE(client.Write("%s%s%n%n%999999d"));
    EXPECT_EQ(client.Read(), "%s%s%n%n%999999d");
}

void WritesFromTwoThreads(End& end)
{
    RawPipe& pipe = OpenRaw(end);
    const auto write = [&] {
        for (int message = 0; message < 100; ++message) {
            win32::OverlappedOperation operation;
            const std::string text(50, 't');
            operation.Write(pipe.Get(), text.data(), 50);
            support::WaitFor(operation.EventHandle());
        }
    };
    std::array<win32::Thread, 2> writers;
    for (win32::Thread& writer : writers) {
        ASSERT_TRUE(writer.Start(write));
    }
}

void Sends600RequestsAhead(End& end)
{
    PipeClient& client = OpenServed(end);
    for (int request = 0; request < 600; ++request) {
        ASSERT_TRUE(client.Write("ahead"));
    }
}

// --- opening

void OpensForReadingOnly(End& end)
{
    OpenRaw(end, GENERIC_READ).StartReading(100);
}

void OpensForWritingOnly(End& end)
{
    RawPipe& pipe = OpenRaw(end, GENERIC_WRITE);
    for (int request = 0; request < 50; ++request) {
        ASSERT_TRUE(pipe.Write(std::string(2'000, 'o')));
    }
}

void OpensForNeither(End& end)
{
    OpenRaw(end, FILE_READ_ATTRIBUTES);
}

void OpensAndClosesAtOnce(End& end)
{
    const std::string pipe = end.Register(1);
    for (int time = 0; time < 50; ++time) {
        RawPipe visitor;
        ASSERT_TRUE(visitor.Open(pipe, Both));
    }
}

void OpensItsPipeTwice(End& end)
{
    auto& client = OpenServed(end);
    const std::string pipe = end.Register(2);
    auto& first = end.Hold(std::make_shared<RawPipe>());
    ASSERT_TRUE(first.Open(pipe, Both));
    RawPipe second;
    EXPECT_FALSE(second.Open(pipe, Both, Shortly));
    ASSERT_TRUE(client.Write("still"));
    EXPECT_EQ(client.Read(), "still");
}

void TriesTheOtherClientsPipe(End& end)
{
    RawPipe thief;
    for (int time = 0; time < 200; ++time) {
        ASSERT_FALSE(thief.Open(end.Everyone().Client().Pipe(), Both, std::chrono::milliseconds(0)));
    }
}

void ServesTheOtherClientsPipe(End& end)
{
    const std::string path = R"(\\.\pipe\)" + end.Everyone().Client().Pipe();
    for (int time = 0; time < 200; ++time) {
        const win32::FileHandle squatter(::CreateNamedPipeA(path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE,
                                                            PIPE_UNLIMITED_INSTANCES, 64, 64, 0, nullptr));
        ASSERT_FALSE(squatter);
    }
}

void ServesItsPipeBeforeTheRouterDoes(End& end)
{
    const std::string name = support::UniqueName("Hostile");
    const std::string path = R"(\\.\pipe\)" + name;
    auto squatter = std::make_shared<win32::FileHandle>(
        ::CreateNamedPipeA(path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE, 1, 64, 64, 0, nullptr));
    ASSERT_TRUE(*squatter);
    end.Hold(squatter);
    const BSTR text = ::SysAllocString(std::wstring(name.begin(), name.end()).c_str());
    EXPECT_EQ(end.Router().Register(End::DeviceType, 1, 64, 64, text), S_OK);
    ::SysFreeString(text);
}

void TurnsItsEndNotToWait(End& end)
{
    RawPipe& pipe = OpenRaw(end);
    DWORD mode = PIPE_READMODE_BYTE | PIPE_NOWAIT;
    ::SetNamedPipeHandleState(pipe.Get(), &mode, nullptr, nullptr);
    for (int request = 0; request < 50; ++request) {
        pipe.StartWriting(std::string(20'000, 'n'));
    }
}

void DisconnectsAsIfItWereTheServer(End& end)
{
    RawPipe& pipe = OpenRaw(end);
    EXPECT_FALSE(::DisconnectNamedPipe(pipe.Get()));
}

// --- leaving

void LeavesInMidWrite(End& end)
{
    const std::string name = end.Register(1);
    for (int time = 0; time < 5; ++time) {
        RawPipe pipe;
        ASSERT_TRUE(pipe.Open(name, Both));
        pipe.StartWriting(std::string(1u << 20, 'm'));
        pipe.HasWritten(Shortly);
    }
}

void LeavesWithAnswersUnread(End& end)
{
    const std::string name = end.Register(1);
    for (int time = 0; time < 5; ++time) {
        RawPipe pipe;
        ASSERT_TRUE(pipe.Open(name, Both));
        for (int request = 0; request < 10; ++request) {
            pipe.StartWriting(std::string(5'000, 'u'));
            pipe.HasWritten(Shortly);
        }
    }
}

/// Unregisters or releases on a thread of its own, because by design that waits for the client to close its pipe.
void HoldWhilePortGoes(End& end, bool release)
{
    PipeClient client;
    std::string name;
    win32::Event registered(win32::Event::Kind::ManualReset);
    win32::Event opened(win32::Event::Kind::ManualReset);
    win32::Thread owner;
    ASSERT_TRUE(owner.Start([&] {
        ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        {
            End other(end.Everyone());
            name = other.Register(80);
            registered.Set();
            support::WaitFor(opened.Get());
            if (!release) {
                other.Router().Unregister(End::DeviceType, 80);
            }
        }
        ::CoUninitialize();
    }));
    ASSERT_TRUE(support::WaitFor(registered.Get()));
    EXPECT_TRUE(served::Open(client, name));
    EXPECT_TRUE(client.Write("never read") && support::WaitUntil([&] { return client.Available() > 0; }));
    opened.Set();
    EXPECT_TRUE(end.Everyone().Client().Does(40));
    client.Close();
    owner.Join();
}

/// A process that opened a pipe that the test registered, and is killed.
void IsKilled(End& end, const std::wstring& command)
{
    const std::string name = end.Register(1);
    for (int time = 0; time < 2; ++time) {
        const std::wstring ready = support::UniqueName(L"Killed");
        const win32::KernelHandle event(::CreateEventW(nullptr, TRUE, FALSE, ready.c_str()));
        const support::ChildProcess probe(support::ProgramFolder() / L"RouterProbe.exe",
                                          command + L" --port 10,1 --attach --pipe-name " +
                                              std::wstring(name.begin(), name.end()) + L" --ready-event " + ready);
        ASSERT_TRUE(support::WaitFor(event.Get()));
        ASSERT_TRUE(end.Everyone().Client().Does(10));
        probe.Kill();
        ASSERT_TRUE(probe.WaitForExit());
    }
}

void LendsItsPipeToAnotherProcess(End& end)
{
    RawPipe& pipe = OpenRaw(end);
    const support::ChildProcess other(support::ProgramFolder() / L"RouterProbe.exe", L"--help");
    HANDLE lent = nullptr;
    // Whether that process has ended meanwhile does not matter.
    ::DuplicateHandle(::GetCurrentProcess(), pipe.Get(), other.Process(), &lent, 0, FALSE, DUPLICATE_SAME_ACCESS);
    pipe.Close();
    other.WaitForExit();
}

class HostileClient : public hostile::HostileEnd
{};

TEST_P(HostileClient, CostsTheOtherClientNothing)
{
    ActAndLook();
}

const auto Reading = testing::Values(
    Case{"Never", NeverReads}, Case{"OneByteAtATime", ReadsOneByteAtATime},
    Case{"HalfAnAnswerAndLeaves", ReadsHalfAnAnswerAndLeaves}, Case{"NothingButLooks", LooksAndNeverTakes},
    Case{"AndCancelsEveryRead", CancelsEveryRead}, Case{"WithoutAnAnswerToCome", ReadsWithAReadPending});
const auto Writing = testing::Values(
    Case{"AByteAtATime", WritesAByteAtATime}, Case{"NothingOften", WritesNothingOftenAndThenSomething},
    Case{"AMegabyteAtOnce", Writes1MBAtOnce}, Case{"AMegabyteAndNeverReads", Writes1MBAndNeverReads},
    Case{"MoreThanItsReadBuffer", WritesMoreThanItsReadBuffer},
    Case{"MoreThanAPacketHolds", WritesMoreThanAPacketHolds},
    Case{"WhatLooksLikePackets", SendsWhatLooksLikePackets}, Case{"SyncBytesOnly", SendsSyncBytesOnly},
    Case{"FormatDirectives", SendsFormatDirectives}, Case{"FromTwoThreads", WritesFromTwoThreads},
    Case{"SixHundredRequestsAhead", Sends600RequestsAhead});
const auto Opening =
    testing::Values(Case{"ForReadingOnly", OpensForReadingOnly}, Case{"ForWritingOnly", OpensForWritingOnly},
                    Case{"ForNeither", OpensForNeither}, Case{"AndClosesAtOnce", OpensAndClosesAtOnce},
                    Case{"ItsPipeTwice", OpensItsPipeTwice}, Case{"TheOtherClientsPipe", TriesTheOtherClientsPipe},
                    Case{"AServerOfTheOtherClientsPipe", ServesTheOtherClientsPipe},
                    Case{"AServerOfItsPipeBeforeTheRouter", ServesItsPipeBeforeTheRouterDoes},
                    Case{"AndTurnsItsEndNotToWait", TurnsItsEndNotToWait},
                    Case{"AndDisconnectsAsTheServer", DisconnectsAsIfItWereTheServer});
const auto Leaving =
    testing::Values(Case{"InMidWrite", LeavesInMidWrite}, Case{"WithAnswersUnread", LeavesWithAnswersUnread},
                    Case{"ItsPipeHeldWhenItsPortIsRemoved", [](End& end) { HoldWhilePortGoes(end, false); }},
                    Case{"ItsPipeHeldWhenItsObjectIsReleased", [](End& end) { HoldWhilePortGoes(end, true); }},
                    Case{"KilledWhileItSends", [](End& end) { IsKilled(end, L"measure --count 0 --size 3000"); }},
                    Case{"KilledWhileItListens", [](End& end) { IsKilled(end, L"listen"); }},
                    Case{"ItsPipeToAnotherProcess", LendsItsPipeToAnotherProcess});

INSTANTIATE_TEST_SUITE_P(Reads, HostileClient, Reading, hostile::NameOf);
INSTANTIATE_TEST_SUITE_P(Writes, HostileClient, Writing, hostile::NameOf);
INSTANTIATE_TEST_SUITE_P(Opens, HostileClient, Opening, hostile::NameOf);
INSTANTIATE_TEST_SUITE_P(Leaves, HostileClient, Leaving, hostile::NameOf);

} // namespace
