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
    name = "NobodyServesThis";
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
    const auto notYet = AwaitEvent(port, MORVANE_EVENT_NOT_YET);
    ASSERT_TRUE(notYet);
    EXPECT_EQ(notYet->error, MORVANE_E_NO_PIPE);
    EXPECT_EQ(Ask("x"), "MORVANE_E_NO_PIPE");
}

} // namespace
