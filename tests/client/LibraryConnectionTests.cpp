// The library's connection, at a pipe that the test serves as the router serves its own.
#include "tests/client/LibraryCalls.h"

#include <atomic>
#include <string>
#include <vector>

namespace {

using morvane::Of;
using morvane::Timeout;
using std::chrono::milliseconds;

struct LibraryBrokenPipe : LibraryCalls
{};

TEST_F(LibraryBrokenPipe, ARequestThatBreaksIsReportedAndNotRepeated)
{
    std::vector<std::string> got;
    Serve(
        [&](const std::string& message) {
            got.push_back(message);
            return FakePort::Replies{message};
        },
        {.breaksAtFirst = 0, .breaksAtMessage = 2, .messages = true, .greeting = {}});
    Open();
    EXPECT_EQ(Ask("one"), "one");
    EXPECT_EQ(Ask("two"), "MORVANE_E_LOST");
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
    const auto gone = AwaitEvent(port, MORVANE_EVENT_INSTRUMENT_GONE);
    ASSERT_TRUE(gone);
    EXPECT_EQ(gone->unanswered, 1u);
    EXPECT_EQ(gone->windows_error, static_cast<std::uint32_t>(ERROR_BROKEN_PIPE));
    EXPECT_TRUE(AwaitEvent(port, MORVANE_EVENT_INSTRUMENT_BACK));
    EXPECT_EQ(Ask("too soon"), "MORVANE_E_OUT_OF_STEP") << "the instrument may answer on the new connection";
    port.Resync(Timeout(0), Patient, error);
    EXPECT_EQ(error, MORVANE_OK);
    EXPECT_EQ(Ask("three"), "three");
    port.Close();
    server.reset();
    EXPECT_EQ(got, (std::vector<std::string>{"one", "two", "three"}));
}

TEST_F(LibraryBrokenPipe, QueuedMessagesAreCountedAndDropped)
{
    std::atomic<int> got{0};
    const win32::Event begin(win32::Event::Kind::ManualReset);
    Serve(
        [&](const std::string&) {
            begin.Wait(INFINITE);
            ++got;
            return FakePort::Replies{};
        },
        {.breaksAtFirst = 0, .breaksAtMessage = 1, .messages = true, .greeting = {}});
    options.flags |= MORVANE_QUEUE;
    Open();
    for (const std::string& message : Numbered(10)) {
        port.Send(Of(message), Timeout(0), error);
        ASSERT_EQ(error, MORVANE_OK);
    }
    begin.Set();
    const auto gone = AwaitEvent(port, MORVANE_EVENT_INSTRUMENT_GONE);
    ASSERT_TRUE(gone);
    EXPECT_GE(gone->unanswered, 1u);
    EXPECT_EQ(gone->unanswered + gone->unsent, 10u);
    port.WaitReady(Patient, error);
    EXPECT_EQ(error, MORVANE_OK);
    port.Close();
    server.reset();
    EXPECT_EQ(got, 1) << "a dropped message was sent later";
}

TEST_F(LibraryBrokenPipe, CallsSayThatTheInstrumentIsMissing)
{
    Serve(Echo);
    Open();
    server.reset();
    EXPECT_EQ(Receive(), "MORVANE_E_NO_PIPE");
    EXPECT_EQ(Ask("x"), "MORVANE_E_NO_PIPE");
    port.WaitReady(milliseconds(10), error);
    EXPECT_EQ(error, MORVANE_E_NO_PIPE);
}

TEST_F(LibraryBrokenPipe, WhatCameBeforeCanBeReceived)
{
    Serve([](const std::string& message) { return FakePort::Replies{message, "rest"}; },
          {.breaksAtFirst = 0, .breaksAtMessage = 2, .messages = true, .greeting = {}});
    Open();
    EXPECT_EQ(Ask("one"), "one");
    ASSERT_TRUE(support::WaitUntil([&] { return Receive(Timeout(0)) == "rest"; }));
    port.Send(Of("two"), Patient, error);
    EXPECT_TRUE(AwaitEvent(port, MORVANE_EVENT_INSTRUMENT_GONE));
}

/// The instrument is unplugged and plugged in while the caller's function judges a message, which keeps the thread
/// that waits from seeing it.
struct LibraryReplacedConnection : LibraryCalls
{
    static int MORVANE_CALL IsStatus(void* context, const void* message, std::uint32_t)
    {
        auto& test = *static_cast<LibraryReplacedConnection*>(context);
        test.judges.Set();
        test.isBack.Wait(INFINITE);
        return *static_cast<const char*>(message) == 's' ? 1 : 0;
    }
    ~LibraryReplacedConnection() override
    {
        isBack.Set();
        port.Close();
    }
    void ServeStatusThenBreak()
    {
        Serve([](const std::string&) { return FakePort::Replies{"status"}; },
              {.breaksAtFirst = 0, .breaksAtMessage = 2, .messages = true, .greeting = {}});
    }
    void Replace()
    {
        ASSERT_TRUE(support::WaitFor(judges.Get()));
        // Nothing is read now: the sending sees that the pipe is broken.
        EXPECT_TRUE(support::WaitUntil([this] {
            port.Send(Of("x"), Timeout(10), error);
            return error == MORVANE_E_NO_PIPE;
        }));
        port.WaitReady(Patient, error);
        ASSERT_EQ(error, MORVANE_OK);
        isBack.Set();
    }

    const win32::Event judges{win32::Event::Kind::ManualReset};
    const win32::Event isBack{win32::Event::Kind::ManualReset};
};

TEST_F(LibraryReplacedConnection, IsNoticedByAReceive)
{
    ServeStatusThenBreak();
    options.unsolicited = IsStatus;
    options.unsolicited_context = this;
    Open();
    port.Send(Of("go"), Patient, error);
    ASSERT_EQ(error, MORVANE_OK);
    BlockedCall call([this] {
        int failed = MORVANE_OK;
        port.Receive(Patient, failed);
        return failed;
    });
    ASSERT_NO_FATAL_FAILURE(Replace());
    EXPECT_EQ(call.Outcome(), MORVANE_E_NO_PIPE);
}

TEST_F(LibraryReplacedConnection, IsNoticedByARequest)
{
    ServeStatusThenBreak();
    options.flags |= MORVANE_QUEUE; // sending does not wait for the request's end
    Open();
    BlockedCall call([this] {
        int failed = MORVANE_OK;
        const auto isReply = [this](morvane::View message) {
            return IsStatus(this, message.data(), 0) == 0; // never
        };
        port.RequestMatch(Of("go"), isReply, Patient, failed);
        return failed;
    });
    ASSERT_NO_FATAL_FAILURE(Replace());
    EXPECT_EQ(call.Outcome(), MORVANE_E_LOST);
}

TEST_F(LibraryBrokenPipe, WhatTheSendingFindsBrokenIsStillRead)
{
    // One message fills the queue: the others stay in the pipe.
    Serve([](const std::string&) { return FakePort::Replies{"one", "two", "three"}; },
          {.breaksAtFirst = 0, .breaksAtMessage = 2, .messages = true, .greeting = {}});
    options.queue_limit = 1;
    Open();
    port.Send(Of("go"), Patient, error);
    ASSERT_EQ(error, MORVANE_OK);
    EXPECT_TRUE(support::WaitUntil([this] {
        port.Send(Of("x"), Timeout(10), error);
        return error == MORVANE_E_NO_PIPE;
    }));
    port.WaitReady(Patient, error);
    ASSERT_EQ(error, MORVANE_OK);
    for (const char* const expected : {"one", "two", "three"}) {
        EXPECT_EQ(Receive(), expected);
    }
}

TEST_F(LibraryUnreadPipe, AMessageBetweenTwoReceivesOutlivesItsConnection)
{
    Open();
    ASSERT_TRUE(WriteMessage(pipe.Get(), "one"));
    ASSERT_EQ(Receive(), "one");
    ASSERT_TRUE(WriteMessage(pipe.Get(), "two"));
    ASSERT_TRUE(::DisconnectNamedPipe(pipe.Get()));
    EXPECT_EQ(Receive(), "two");
}

struct LibraryOpen : LibraryCalls
{};

TEST_F(LibraryOpen, SitsOutAPipeThatIsRecreated)
{
    Serve(Echo, {.breaksAtFirst = 5, .breaksAtMessage = 0, .messages = true, .greeting = {}});
    Open();
    EXPECT_EQ(Ask("x"), "x");
    EXPECT_EQ(server->Connections(), 6);
}

TEST_F(LibraryOpen, SaysThatAnotherClientHoldsThePort)
{
    Serve(Echo);
    Open();
    const morvane::Port second(options, error);
    EXPECT_EQ(error, MORVANE_E_HELD);
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_PIPE_BUSY));
    EXPECT_EQ(second.Get(), 0u);
}

TEST_F(LibraryOpen, WithAShortTimeKnowsAHeldPort)
{
    Serve(Echo);
    Open();
    options.open_timeout = 1;
    const morvane::Port second(options, error);
    EXPECT_EQ(error, MORVANE_E_HELD);
}

TEST_F(LibraryOpen, TakesANameInUtf8)
{
    const std::wstring ascii = support::UniqueName(L"Utf8");
    const std::wstring wide = ascii + L"\u00E4";
    const win32::FileHandle pipe(::CreateNamedPipeW(support::PipePath(wide).c_str(),
                                                    PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED, PIPE_TYPE_MESSAGE,
                                                    1, 100, 100, 0, nullptr));
    ASSERT_TRUE(pipe);
    name = Narrow(ascii) + "\xC3\xA4";
    options = AttachTo(name);
    Open();
}

TEST_F(LibraryOpen, SaysThatThePipeDoesNotAppear)
{
    name = "NotServed";
    options = AttachTo(name);
    options.open_timeout = 50;
    const morvane::Port absent(options, error);
    EXPECT_EQ(error, MORVANE_E_NO_PIPE);
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(LibraryOpen, InTheBackgroundReportsWhatItWaitsFor)
{
    name = Narrow(support::UniqueName(L"Background"));
    options = AttachTo(name);
    options.flags |= MORVANE_BACKGROUND;
    Open();
    EXPECT_EQ(Ask("x"), "MORVANE_E_NO_PIPE") << "no try has failed yet";
    const auto notYet = AwaitEvent(port, MORVANE_EVENT_NOT_YET);
    ASSERT_TRUE(notYet);
    EXPECT_EQ(notYet->error, MORVANE_E_NO_PIPE);
    EXPECT_EQ(Ask("x"), "MORVANE_E_NO_PIPE");
}

// What another process did in the same time is not counted: the library starts no process here.
TEST_F(LibraryOpen, LeavesNothingWhenItFails)
{
    Serve(Echo);
    Open();
    const std::string notServed = Narrow(support::UniqueName(L"Absent"));
    morvane_options absent = AttachTo(notServed);
    absent.open_timeout = 10;
    const auto fail = [&](const morvane_options& tried) {
        const morvane::Port refused(tried, error);
        EXPECT_NE(error, MORVANE_OK);
    };
    fail(absent);
    const DWORD before = CountOfHandles();
    for (int i = 0; i < 10; ++i) {
        fail(absent);
    }
    fail(options); // held
    EXPECT_LE(CountOfHandles(), before + 2);
}

} // namespace
