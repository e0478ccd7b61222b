// The calls of the client library, at a pipe that the test serves as the router serves its own.
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

TEST_F(LibraryCalls, MessagesAreReadWithoutAReceiveCall)
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
