// A client's end of a port pipe, against a pipe that behaves as the router's do.
#include "client/ClientPipe.h"
#include "tests/support/WaitUntil.h"
#include "tests/unit/tools/FakePort.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

using Outcome = ClientPipe::Outcome;
using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;

Bytes Of(const std::string& text)
{
    return {text.begin(), text.end()};
}

/// The only server's end of a pipe that no port serves.
win32::FileHandle ServerAt(const std::wstring& path)
{
    return win32::FileHandle(::CreateNamedPipeW(path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                                PIPE_TYPE_MESSAGE, 1, 100, 100, 0, nullptr));
}

struct ClientPipeTest : testing::Test
{
    win32::Event stop{win32::Event::Kind::ManualReset};
    Bytes message;
};

TEST_F(ClientPipeTest, APipeThatIsNotServedIsAbsentWhenTheTimeIsOver)
{
    ClientPipe pipe(support::PipePath(support::UniqueName(L"Absent")), stop.Get());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pipe.Open(milliseconds(80)), Outcome::Absent);
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(80));
    EXPECT_EQ(pipe.Error(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(pipe.IsOpen());
}

TEST_F(ClientPipeTest, APipeThatAnotherClientHasIsBusy)
{
    FakePort port(Echo);
    ClientPipe first(port.Path(), stop.Get());
    ClientPipe second(port.Path(), stop.Get());
    ASSERT_EQ(first.Open(support::DefaultTimeout), Outcome::Done);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(second.Open(support::DefaultTimeout), Outcome::Busy);
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(1000)) << "busy for a moment is no sign";
    EXPECT_EQ(second.Error(), static_cast<DWORD>(ERROR_PIPE_BUSY));
    first.Close();
    EXPECT_EQ(second.Open(support::DefaultTimeout), Outcome::Done);
}

TEST_F(ClientPipeTest, APipeThatIsBusyAtTheEndIsTriedUntilItIsCertain)
{
    const std::wstring path = support::PipePath(support::UniqueName(L"BusyForAMoment"));
    const win32::FileHandle server = ServerAt(path);
    ASSERT_TRUE(server);
    ClientPipe first(path, stop.Get());
    ASSERT_EQ(first.Open(support::DefaultTimeout), Outcome::Done);
    ClientPipe second(path, stop.Get());
    const win32::Event ended(win32::Event::Kind::ManualReset);
    Outcome outcome = Outcome::Broken;
    win32::Thread thread;
    ASSERT_TRUE(thread.Start([&] {
        outcome = second.Open(milliseconds(0));
        ended.Set();
    }));
    EXPECT_FALSE(ended.Wait(200)) << "given up although the pipe was busy for less than a second";
    ASSERT_TRUE(::DisconnectNamedPipe(server.Get()));
    win32::OverlappedOperation listening;
    EXPECT_TRUE(listening.ConnectPipe(server.Get()) || ::GetLastError() == ERROR_PIPE_CONNECTED);
    thread.Join();
    EXPECT_EQ(outcome, Outcome::Done);
}

TEST_F(ClientPipeTest, APipeThatBreaksRightAfterItWasOpenedIsOpenedAgain)
{
    FakePort port(Echo, {.breaksAtFirst = 3, .breaksAtMessage = 0, .messages = true, .greeting = {}});
    ClientPipe pipe(port.Path(), stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    ASSERT_EQ(pipe.Write(Of("x"), support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(message, Of("x"));
    EXPECT_EQ(port.Connections(), 4);
}

TEST_F(ClientPipeTest, MessagesAreReadOneByOne)
{
    FakePort port([](const std::string&) { return FakePort::Replies{"one", "", "three"}; });
    ClientPipe pipe(port.Path(), stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    ASSERT_EQ(pipe.Write(Of("go"), support::DefaultTimeout), Outcome::Done);
    for (const char* expected : {"one", "", "three"}) {
        ASSERT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Done);
        EXPECT_EQ(message, Of(expected));
    }
}

TEST_F(ClientPipeTest, AMessageThatComesWhileThePipeIsOpenedIsNotLost)
{
    FakePort port(Echo, {.breaksAtFirst = 0, .breaksAtMessage = 0, .messages = true, .greeting = "welcome"});
    ClientPipe pipe(port.Path(), stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    ASSERT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(message, Of("welcome"));
}

TEST_F(ClientPipeTest, AReplyThatIsLateIsReadByTheNextRead)
{
    FakePort port(Echo);
    ClientPipe pipe(port.Path(), stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(pipe.Read(message, milliseconds(30)), Outcome::TimedOut);
    ASSERT_EQ(pipe.Write(Of("x"), support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(message, Of("x"));
}

TEST_F(ClientPipeTest, AMessageThatWasReadAheadOutlivesItsConnection)
{
    const std::wstring path = support::PipePath(support::UniqueName(L"ReadAhead"));
    const win32::FileHandle server = ServerAt(path);
    ASSERT_TRUE(server);
    ClientPipe pipe(path, stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    ASSERT_TRUE(WriteMessage(server.Get(), "one"));
    ASSERT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Done);
    pipe.ReadAhead();
    ASSERT_TRUE(WriteMessage(server.Get(), "two"));
    ASSERT_TRUE(::DisconnectNamedPipe(server.Get()));
    ASSERT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(message, Of("two"));
    EXPECT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Broken);
}

/// Cancels what is pending on the client's end of the process's only pipe, as Windows does when the thread that
/// started it ends.
void CancelPendingRead()
{
    for (std::uintptr_t number = 4; number < 0x1000; number += 4) {
        const auto handle = reinterpret_cast<HANDLE>(number);
        DWORD flags = 0;
        if (::GetNamedPipeInfo(handle, &flags, nullptr, nullptr, nullptr) != FALSE &&
            (flags & PIPE_SERVER_END) == 0)
        {
            ::CancelIoEx(handle, nullptr);
        }
    }
}

TEST_F(ClientPipeTest, AReadThatWindowsHasCancelledGoesOn)
{
    FakePort port(Echo);
    ClientPipe pipe(port.Path(), stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    CancelPendingRead();
    ASSERT_EQ(pipe.Write(Of("x"), support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(message, Of("x"));
}

TEST_F(ClientPipeTest, TheLongestPayloadFits)
{
    const std::string longest(65535, 'x');
    FakePort port([&](const std::string&) { return FakePort::Replies{longest}; });
    ClientPipe pipe(port.Path(), stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    ASSERT_EQ(pipe.Write(Of("go"), support::DefaultTimeout), Outcome::Done);
    ASSERT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(message, Of(longest));
}

TEST_F(ClientPipeTest, APipeWithoutMessagesIsReadAsBytes)
{
    FakePort port(Echo, {.breaksAtFirst = 0, .breaksAtMessage = 0, .messages = false, .greeting = {}});
    ClientPipe pipe(port.Path(), stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    ASSERT_EQ(pipe.Write(Of("bytes"), support::DefaultTimeout), Outcome::Done);
    ASSERT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Done);
    EXPECT_EQ(message, Of("bytes"));
}

TEST_F(ClientPipeTest, ABrokenPipeIsToldWithItsError)
{
    std::optional<FakePort> port(std::in_place, Echo);
    ClientPipe pipe(port->Path(), stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    port.reset();
    EXPECT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Broken);
    EXPECT_EQ(pipe.Error(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
    EXPECT_EQ(pipe.Write(Of("x"), support::DefaultTimeout), Outcome::Broken);
}

TEST_F(ClientPipeTest, AWriteThatIsNotReadTimesOut)
{
    // A pipe of the test's own that no thread serves: nothing is read from it.
    const std::wstring path = support::PipePath(support::UniqueName(L"NoReader"));
    const win32::FileHandle server = ServerAt(path);
    ASSERT_TRUE(server);
    ClientPipe pipe(path, stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    const Bytes big(1'000'000);
    EXPECT_EQ(pipe.Write(big, milliseconds(50)), Outcome::TimedOut);
}

TEST_F(ClientPipeTest, TheStopSignalEndsOpeningAndReading)
{
    FakePort port(Echo);
    ClientPipe pipe(port.Path(), stop.Get());
    ClientPipe absent(support::PipePath(support::UniqueName(L"Absent")), stop.Get());
    ASSERT_EQ(pipe.Open(support::DefaultTimeout), Outcome::Done);
    stop.Set();
    EXPECT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Stopped);
    EXPECT_EQ(absent.Open(support::DefaultTimeout), Outcome::Stopped);
}

TEST_F(ClientPipeTest, AClosedPipeIsBroken)
{
    ClientPipe pipe(support::PipePath(support::UniqueName(L"Absent")), stop.Get());
    EXPECT_EQ(pipe.Read(message, support::DefaultTimeout), Outcome::Broken);
    EXPECT_EQ(pipe.Write(Of("x"), support::DefaultTimeout), Outcome::Broken);
}

} // namespace
