// The calls of the client library, at a pipe that the test serves as the router serves its own.
#include "tests/client/LibraryCalls.h"
#include "tests/support/PipeClient.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace {

using morvane::Of;
using morvane::Timeout;
using std::chrono::milliseconds;

TEST_F(LibraryCalls, ARequestGetsItsReply)
{
    Serve(Answering("re:"));
    Open();
    for (const char* const text : {"one", "two", "three"}) {
        EXPECT_EQ(Ask(text), std::string("re:") + text);
    }
}

TEST_F(LibraryCalls, TheLongestMessageGoesAndComesWhole)
{
    Serve(Echo);
    Open();
    const std::string longest(MORVANE_LONGEST_MESSAGE, 'x');
    EXPECT_EQ(Ask(longest), longest);
    EXPECT_EQ(Ask(longest + "x"), "MORVANE_E_TOO_LONG");
}

TEST_F(LibraryCalls, AMessageLongerThanTheReadSizeIsRefused)
{
    Serve(Echo);
    options.read_size = 10;
    Open();
    EXPECT_EQ(Ask("0123456789"), "0123456789");
    EXPECT_EQ(Ask("0123456789+"), "MORVANE_E_TOO_LONG");
}

TEST_F(LibraryCalls, ASmallBufferGetsTheLengthAndThenTheMessage)
{
    Serve(Echo);
    Open();
    std::uint8_t room[8] = {};
    EXPECT_EQ(port.Request(Of("0123456789"), std::span(room, 4), Patient, error), 10u);
    EXPECT_EQ(error, MORVANE_E_BUFFER);
    EXPECT_EQ(port.Receive(std::span(room, 8), Patient, error), 10u);
    EXPECT_EQ(error, MORVANE_E_BUFFER);
    EXPECT_EQ(Receive(), "0123456789");
}

TEST_F(LibraryCalls, AReceiveWithoutTimeTakesWhatHasCome)
{
    Serve([](const std::string&) { return FakePort::Replies{"one", "two"}; });
    Open();
    EXPECT_EQ(Receive(Timeout(0)), "MORVANE_E_TIMEOUT");
    EXPECT_EQ(Ask("go"), "one");
    EXPECT_TRUE(support::WaitUntil([&] { return Receive(Timeout(0)) == "two"; }));
}

TEST_F(LibraryCalls, MessagesAreReadWhileNobodyReceives)
{
    std::atomic<int> written{0};
    Serve([&](const std::string&) {
        ++written;
        return FakePort::Replies(40, std::string(1000, 'x'));
    });
    Open();
    const morvane::View go = Of("go");
    port.Send(go, Patient, error);
    ASSERT_EQ(error, MORVANE_OK);
    // Ten times what the pipe holds: the second message is read only when all of that was taken.
    port.Send(go, Patient, error);
    EXPECT_EQ(error, MORVANE_OK);
    EXPECT_TRUE(support::WaitUntil([&] { return written == 2; }));
}

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
    support::PipeClient unused;
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

TEST_F(LibraryCalls, BroadcastsGoTheirOwnWay)
{
    Serve([](const std::string& message) { return FakePort::Replies{"*1", message, "*2"}; });
    char context[] = "context";
    options.unsolicited = IsBroadcast;
    options.unsolicited_context = context;
    Open();
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

/// Reads slowly, so that what is written without waiting lies in the pipe together.
FakePort::Player Slowly(std::vector<std::string>& got)
{
    return [&got](const std::string& message) {
        got.push_back(message);
        ::Sleep(2); // the reader's slowness: what is simulated, not what is waited for
        return FakePort::Replies{};
    };
}

TEST_F(LibraryCalls, WithoutTheLibraryQuickMessagesMerge)
{
    std::vector<std::string> got;
    {
        FakePort raw(Slowly(got));
        support::PipeClient client;
        ASSERT_TRUE(client.Open(Narrow(raw.Name())));
        std::string all;
        for (const std::string& message : Numbered(50)) {
            ASSERT_TRUE(client.Write(message));
            all += message;
        }
        ASSERT_TRUE(::FlushFileBuffers(client.Handle()));
    }
    EXPECT_LT(got.size(), 50u) << "the tests below prove nothing";
}

TEST_F(LibraryCalls, SendsDoNotMerge)
{
    std::vector<std::string> got;
    Serve(Slowly(got));
    Open();
    for (const std::string& message : Numbered(50)) {
        port.Send(Of(message), Patient, error);
        ASSERT_EQ(error, MORVANE_OK);
    }
    port.Flush(Patient, error);
    ASSERT_EQ(error, MORVANE_OK);
    port.Close();
    server.reset();
    EXPECT_EQ(got, Numbered(50));
}

TEST_F(LibraryCalls, QueuedSendsReturnAtOnceAndDoNotMerge)
{
    std::vector<std::string> got;
    const win32::Event begin(win32::Event::Kind::ManualReset);
    Serve([&, slowly = Slowly(got)](const std::string& message) {
        begin.Wait(INFINITE);
        return slowly(message);
    });
    options.flags |= MORVANE_QUEUE;
    options.queue_limit = 50;
    Open();
    // The first one is on its way when the queue counts.
    for (const std::string& message : Numbered(50)) {
        port.Send(Of(message), Timeout(0), error);
        ASSERT_EQ(error, MORVANE_OK);
    }
    EXPECT_TRUE(support::WaitUntil([&] {
        port.Send(Of("too many"), Timeout(0), error);
        return error != MORVANE_OK;
    }));
    EXPECT_EQ(error, MORVANE_E_QUEUE_FULL);
    begin.Set();
    port.Flush(Patient, error);
    ASSERT_EQ(error, MORVANE_OK);
    port.Close();
    server.reset();
    ASSERT_GE(got.size(), 50u);
    got.resize(50);
    EXPECT_EQ(got, Numbered(50));
}

TEST_F(LibraryCalls, AMessageThatWasSentIsReadBeforeTheClose)
{
    std::vector<std::string> got;
    Serve(Slowly(got));
    Open();
    port.Send(Of("last words"), Patient, error);
    ASSERT_EQ(error, MORVANE_OK);
    EXPECT_EQ(port.Close(), MORVANE_OK);
    server.reset();
    EXPECT_EQ(got, std::vector<std::string>{"last words"});
}

TEST_F(LibraryCalls, RequestsOfSeveralThreadsTakeTurns)
{
    Serve(Answering("re:"));
    Open();
    std::atomic<int> right{0};
    std::vector<std::unique_ptr<win32::Thread>> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.push_back(std::make_unique<win32::Thread>());
        ASSERT_TRUE(threads.back()->Start([&, thread] {
            for (int i = 0; i < 50; ++i) {
                const std::string text = std::to_string(thread) + "/" + std::to_string(i);
                int failed = MORVANE_OK;
                right += TextOf(port.Request(Of(text), Patient, failed)) == "re:" + text ? 1 : 0;
            }
        }));
    }
    threads.clear();
    EXPECT_EQ(right, 200);
}

struct LibraryInterruption : LibraryCalls
{
    /// Runs `call` on another thread and waits until it does not return by itself.
    template <class Body>
    void Begin(Body call)
    {
        ASSERT_TRUE(thread.Start([this, call] {
            outcome = call();
            ended.Set();
        }));
        EXPECT_FALSE(ended.Wait(50));
    }
    int Outcome()
    {
        EXPECT_TRUE(support::WaitFor(ended.Get()));
        thread.Join();
        return outcome;
    }

    std::atomic<int> outcome{MORVANE_OK};
    const win32::Event ended{win32::Event::Kind::ManualReset};
    win32::Thread thread;
};

FakePort::Replies Silent(const std::string&)
{
    return {};
}

TEST_F(LibraryInterruption, CancelEndsARequestAndThePortIsOutOfStep)
{
    Serve(Silent);
    Open();
    Begin([this] {
        int failed = MORVANE_OK;
        port.Request(Of("x"), morvane::Forever, failed);
        return failed;
    });
    port.Cancel();
    EXPECT_EQ(Outcome(), MORVANE_E_CANCELLED);
    EXPECT_EQ(Ask("y"), "MORVANE_E_OUT_OF_STEP");
}

TEST_F(LibraryInterruption, CancelEndsOnlyTheCallsOfThatMoment)
{
    Serve(Echo);
    Open();
    Begin([this] {
        int failed = MORVANE_OK;
        port.Receive(morvane::Forever, failed);
        return failed;
    });
    port.Cancel();
    EXPECT_EQ(Outcome(), MORVANE_E_CANCELLED);
    EXPECT_EQ(Ask("x"), "x");
}

TEST_F(LibraryInterruption, CloseEndsCallsOfOtherThreads)
{
    Serve(Silent);
    Open();
    const morvane_port number = port.Get();
    Begin([number] {
        char room[10];
        std::uint32_t length = 0;
        return morvane_receive(number, room, sizeof room, &length, MORVANE_FOREVER);
    });
    EXPECT_EQ(port.Close(), MORVANE_OK);
    EXPECT_EQ(Outcome(), MORVANE_E_CLOSED);
    EXPECT_EQ(morvane_flush(number, 0), MORVANE_E_HANDLE);
}

TEST_F(LibraryInterruption, ManyThreadsAtAPortThatClosesGetAnErrorEach)
{
    Serve(Echo);
    for (int round = 0; round < 20; ++round) {
        Open();
        const morvane_port number = port.Get();
        std::atomic<int> odd{0};
        std::atomic<int> running{0};
        std::vector<std::unique_ptr<win32::Thread>> threads;
        for (int i = 0; i < 6; ++i) {
            threads.push_back(std::make_unique<win32::Thread>());
            ASSERT_TRUE(threads.back()->Start([&, i] {
                int failed = MORVANE_OK;
                for (++running; failed == MORVANE_OK || failed == MORVANE_E_TIMEOUT;) {
                    char room[10];
                    std::uint32_t length = 0;
                    failed = i % 3 == 0 ? morvane_request(number, "x", 1, room, sizeof room, &length, 20'000)
                           : i % 3 == 1 ? morvane_receive(number, room, sizeof room, &length, 1)
                                        : morvane_send(number, "y", 1, 20'000);
                }
                odd += failed == MORVANE_E_CLOSED || failed == MORVANE_E_HANDLE ? 0 : 1;
            }));
        }
        ASSERT_TRUE(support::WaitUntil([&] { return running == 6; }));
        EXPECT_EQ(port.Close(), MORVANE_OK);
        threads.clear();
        EXPECT_EQ(odd, 0);
    }
}

TEST_F(LibraryCalls, TheWaitHandleIsSetWhileThereIsSomething)
{
    const win32::Event answer(win32::Event::Kind::AutoReset);
    Serve([&](const std::string& message) {
        answer.Wait(INFINITE);
        return FakePort::Replies{message};
    });
    Open();
    void* ready = nullptr;
    ASSERT_EQ(morvane_wait_handle(port.Get(), &ready), MORVANE_OK);
    ASSERT_TRUE(support::WaitFor(ready)) << "for the event of the connection";
    ASSERT_TRUE(AwaitEvent(port, MORVANE_EVENT_CONNECTED));
    EXPECT_EQ(::WaitForSingleObject(ready, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    port.Send(Of("x"), Patient, error);
    EXPECT_EQ(::WaitForSingleObject(ready, 20), static_cast<DWORD>(WAIT_TIMEOUT));
    answer.Set();
    EXPECT_TRUE(support::WaitFor(ready));
    EXPECT_EQ(Receive(Timeout(0)), "x");
    EXPECT_EQ(::WaitForSingleObject(ready, 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

} // namespace
