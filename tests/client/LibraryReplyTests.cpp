// Which message is the reply to a request: late ones, broadcasts, and those that a function of the caller chooses.
#include "tests/client/LibraryCalls.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace {

using morvane::Of;
using morvane::Timeout;
using std::chrono::milliseconds;

struct LibraryLateReply : LibraryCalls
{
    /// The first message is answered when the test says so, and then with the others.
    void ServeLate()
    {
        Serve([this](const std::string& message) {
            if (message == "slow") {
                answer.Wait(INFINITE);
            }
            return FakePort::Replies{message};
        });
    }
    ~LibraryLateReply() override
    {
        answer.Set();
        port.Close();
    }

    const win32::Event answer{win32::Event::Kind::ManualReset};
};

TEST_F(LibraryLateReply, PutsThePortOutOfStep)
{
    ServeLate();
    Open();
    EXPECT_EQ(Ask("slow", Timeout(20)), "MORVANE_E_TIMEOUT");
    EXPECT_EQ(Ask("next"), "MORVANE_E_OUT_OF_STEP");
    answer.Set();
    EXPECT_EQ(Ask("next"), "MORVANE_E_OUT_OF_STEP");
    EXPECT_EQ(Receive(), "slow");
}

TEST_F(LibraryLateReply, IsDiscardedByResynchronising)
{
    ServeLate();
    Open();
    EXPECT_EQ(Ask("slow", Timeout(20)), "MORVANE_E_TIMEOUT");
    answer.Set();
    port.Resync(milliseconds(200), Patient, error);
    ASSERT_EQ(error, MORVANE_OK);
    EXPECT_EQ(Ask("next"), "next");
}

TEST_F(LibraryLateReply, IsDiscardedByReopening)
{
    ServeLate();
    Open();
    EXPECT_EQ(Ask("slow", Timeout(20)), "MORVANE_E_TIMEOUT");
    answer.Set();
    port.Reopen(Patient, error);
    ASSERT_EQ(error, MORVANE_OK) << morvane_error_name(error);
    EXPECT_EQ(Ask("next"), "next");
    EXPECT_TRUE(AwaitEvent(port, MORVANE_EVENT_REOPENED));
    EXPECT_EQ(server->Connections(), 2);
}

TEST_F(LibraryLateReply, ResynchronisingWithoutQuietIsTimedOut)
{
    std::atomic<bool> flood{true};
    Serve([&](const std::string&) {
        // One message after the other, for as long as the test wants.
        while (flood) {
            ::Sleep(1); // the time between two messages: what is simulated, not what is waited for
            return FakePort::Replies(200, "x");
        }
        return FakePort::Replies{};
    });
    Open();
    std::atomic<bool> sends{true};
    win32::Thread sender;
    ASSERT_TRUE(sender.Start([&] {
        while (sends) {
            int ignored = 0;
            port.Send(Of("more"), Timeout(10), ignored);
        }
    }));
    // The flood's pauses are far shorter than the quiet that is asked for.
    port.Resync(milliseconds(5000), milliseconds(300), error);
    EXPECT_EQ(error, MORVANE_E_TIMEOUT);
    sends = false;
    flood = false;
    sender.Join();
}

TEST_F(LibraryCalls, AMessageOfBeforeTheRequestIsNotItsReply)
{
    Serve(Echo, {.breaksAtFirst = 0, .breaksAtMessage = 0, .messages = true, .greeting = "welcome"});
    Open();
    // Read by the library, not received by the caller.
    void* ready = nullptr;
    ASSERT_EQ(morvane_wait_handle(port.Get(), &ready), MORVANE_OK);
    while (port.NextEvent(Timeout(0))) {
    }
    ASSERT_TRUE(support::WaitFor(ready));
    EXPECT_EQ(Ask("x"), "x");
    EXPECT_EQ(TextOf(port.ReceiveUnsolicited(Patient, error)), "welcome");
}

TEST_F(LibraryCalls, ThePredicateChoosesTheReply)
{
    Serve([](const std::string& message) { return FakePort::Replies{"status", "re:" + message, "later"}; });
    Open();
    const auto isReply = [](morvane::View message) { return message.size() > 2 && message[2] == ':'; };
    EXPECT_EQ(TextOf(port.RequestMatch(Of("x"), isReply, Patient, error)), "re:x");
    EXPECT_EQ(TextOf(port.ReceiveUnsolicited(Patient, error)), "status");
    EXPECT_EQ(Receive(), "later");
}

int MORVANE_CALL IsBroadcast(void* context, const void* message, std::uint32_t length)
{
    EXPECT_STREQ(static_cast<const char*>(context), "context");
    return length != 0 && *static_cast<const char*>(message) == '*' ? 1 : 0;
}

struct LibraryBroadcasts : LibraryCalls
{
    ~LibraryBroadcasts() override { port.Close(); }

    /// At a port that sends one broadcast before each reply and one after it.
    void OpenBesideBroadcasts()
    {
        Serve([](const std::string& message) { return FakePort::Replies{"*1", message, "*2"}; });
        options.unsolicited = IsBroadcast;
        options.unsolicited_context = context;
        Open();
    }

    char context[8] = "context";
};

TEST_F(LibraryBroadcasts, GoTheirOwnWay)
{
    OpenBesideBroadcasts();
    EXPECT_EQ(Ask("a"), "a");
    EXPECT_EQ(Ask("b"), "b");
    EXPECT_EQ(Receive(Timeout(0)), "MORVANE_E_TIMEOUT");
    for (const char* const expected : {"*1", "*2", "*1", "*2"}) {
        EXPECT_EQ(TextOf(port.ReceiveUnsolicited(Patient, error)), expected);
    }
}

TEST_F(LibraryCalls, UnsolicitedMessagesBeyondTheLimitAreCounted)
{
    Serve([](const std::string& message) { return FakePort::Replies{"1", "2", "3", "4", "5", "re:" + message}; });
    options.queue_limit = 10;
    Open();
    const auto isReply = [](morvane::View message) { return message.size() > 2; };
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(TextOf(port.RequestMatch(Of("x"), isReply, Patient, error)), "re:x");
    }
    const auto dropped = AwaitEvent(port, MORVANE_EVENT_DROPPED);
    ASSERT_TRUE(dropped);
    EXPECT_EQ(dropped->count, 5u);
    EXPECT_EQ(TextOf(port.ReceiveUnsolicited(Patient, error)), "1");
}

TEST_F(LibraryCalls, WhatARequestRefusesReachesAThreadThatWaits)
{
    Serve([](const std::string&) { return FakePort::Replies{"status"}; });
    Open();
    std::atomic<bool> isReceived{false};
    BlockedCall receiver([&] {
        int failed = MORVANE_OK;
        isReceived = TextOf(port.ReceiveUnsolicited(morvane::Forever, failed)) == "status";
        port.Cancel(); // the request, which has no other end
        return failed;
    });
    const auto refusesSlowly = [](morvane::View) {
        ::Sleep(50); // the caller's slowness: the receiver looks meanwhile and finds nothing
        return false;
    };
    port.RequestMatch(Of("x"), refusesSlowly, Patient, error);
    EXPECT_EQ(error, MORVANE_E_CANCELLED);
    port.Cancel();
    EXPECT_EQ(receiver.Outcome(), MORVANE_OK);
    EXPECT_TRUE(isReceived);
}

TEST_F(LibraryCalls, LongRepliesOfSeveralThreadsReachTheirThreads)
{
    Serve(Echo);
    Open();
    std::atomic<int> right{0};
    std::vector<std::unique_ptr<win32::Thread>> threads;
    for (const char letter : {'a', 'b', 'c', 'd'}) {
        threads.push_back(std::make_unique<win32::Thread>());
        ASSERT_TRUE(threads.back()->Start([&, letter] {
            const std::string text(10'000, letter);
            for (int i = 0; i < 20; ++i) {
                int failed = MORVANE_OK;
                right += TextOf(port.Request(Of(text), Patient, failed)) == text ? 1 : 0;
            }
        }));
    }
    threads.clear();
    EXPECT_EQ(right, 80);
}

TEST_F(LibraryBroadcasts, AreKeptByAResynchronisationAndDoNotDelayIt)
{
    OpenBesideBroadcasts();
    std::atomic<bool> sends{true};
    win32::Thread sender;
    port.Send(Of("*"), Patient, error);
    ASSERT_TRUE(sender.Start([&] {
        // Only broadcasts: what is echoed looks like one.
        for (int ignored = 0; sends;) {
            port.Send(Of("*"), Timeout(10), ignored);
            ::Sleep(1); // the time between two broadcasts: what is simulated, not what is waited for
        }
    }));
    port.Resync(milliseconds(100), Patient, error);
    EXPECT_EQ(error, MORVANE_OK) << morvane_error_name(error);
    sends = false;
    sender.Join();
    EXPECT_EQ(TextOf(port.ReceiveUnsolicited(Patient, error)), "*1");
}

} // namespace
