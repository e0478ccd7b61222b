// Calls that another thread ends: by a cancel or by closing the port.
#include "tests/client/LibraryCalls.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

namespace {

using morvane::Of;
using morvane::Timeout;
using std::chrono::milliseconds;

struct LibraryInterruption : LibraryCalls
{};

TEST_F(LibraryInterruption, CancelEndsARequestAndThePortIsOutOfStep)
{
    Serve(Silent);
    Open();
    BlockedCall call([this] {
        int failed = MORVANE_OK;
        port.Request(Of("x"), morvane::Forever, failed);
        return failed;
    });
    EXPECT_EQ(call.OutcomeByCancel(port), MORVANE_E_CANCELLED);
    EXPECT_EQ(Ask("y"), "MORVANE_E_OUT_OF_STEP");
}

TEST_F(LibraryInterruption, CancelEndsOnlyTheCallsOfThatMoment)
{
    Serve(Echo);
    Open();
    BlockedCall call([this] {
        int failed = MORVANE_OK;
        port.Receive(morvane::Forever, failed);
        return failed;
    });
    EXPECT_EQ(call.OutcomeByCancel(port), MORVANE_E_CANCELLED);
    EXPECT_EQ(Ask("x"), "x");
}

TEST_F(LibraryInterruption, CloseEndsCallsOfOtherThreads)
{
    Serve(Silent);
    Open();
    const morvane_port number = port.Get();
    BlockedCall call([number] {
        char room[10];
        std::uint32_t length = 0;
        return morvane_receive(number, room, sizeof room, &length, MORVANE_FOREVER);
    });
    EXPECT_EQ(port.Close(), MORVANE_OK);
    EXPECT_EQ(call.Outcome(), MORVANE_E_CLOSED);
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

/// A call that waits, and how its port is prepared for that.
struct WaitingCall
{
    const char* name;
    int (*call)(morvane_port number);
    bool isConnected;
};

int ReceivesInto(decltype(&morvane_receive) receive, morvane_port number)
{
    char room[10];
    std::uint32_t length = 0;
    return receive(number, room, sizeof room, &length, MORVANE_FOREVER);
}

struct LibraryWaitingCall : LibraryInterruption, testing::WithParamInterface<WaitingCall>
{
    ~LibraryWaitingCall() override
    {
        go.Set();
        port.Close();
    }
    /// At a port that is never read from, or that does not exist.
    void Prepare()
    {
        if (GetParam().isConnected) {
            Serve([this](const std::string&) {
                go.Wait(INFINITE);
                return FakePort::Replies{};
            });
            Open();
            // One message for the server, one that stays in the pipe.
            port.Send(Of("x"), Patient, error);
            port.Send(Of("y"), Patient, error);
            ASSERT_EQ(error, MORVANE_OK);
        } else {
            name = Narrow(support::UniqueName(L"Absent"));
            options = AttachTo(name);
            options.flags |= MORVANE_BACKGROUND;
            options.open_timeout = 20; // until the library says that it finds no pipe
            Open();
            ASSERT_TRUE(AwaitEvent(port, MORVANE_EVENT_NOT_YET));
        }
        while (port.NextEvent(Timeout(0))) {
        }
    }

    const win32::Event go{win32::Event::Kind::ManualReset};
};

TEST_P(LibraryWaitingCall, EndsByACancel)
{
    ASSERT_NO_FATAL_FAILURE(Prepare());
    const morvane_port number = port.Get();
    BlockedCall call([number] { return GetParam().call(number); });
    EXPECT_EQ(call.OutcomeByCancel(port), MORVANE_E_CANCELLED);
}

TEST_P(LibraryWaitingCall, EndsByTheClose)
{
    ASSERT_NO_FATAL_FAILURE(Prepare());
    const morvane_port number = port.Get();
    BlockedCall call([number] { return GetParam().call(number); });
    go.Set();
    EXPECT_EQ(port.Close(), MORVANE_OK);
    EXPECT_EQ(call.Outcome(), MORVANE_E_CLOSED);
}

INSTANTIATE_TEST_SUITE_P(
    Each, LibraryWaitingCall,
    testing::Values(
        WaitingCall{"Receive", [](auto number) { return ReceivesInto(morvane_receive, number); }, true},
        WaitingCall{"ReceiveUnsolicited",
                    [](auto number) { return ReceivesInto(morvane_receive_unsolicited, number); }, true},
        WaitingCall{"Resync", [](auto n) { return morvane_resync(n, 30'000, MORVANE_FOREVER); }, true},
        WaitingCall{"NextEvent",
                    [](auto number) {
                        morvane_event event{sizeof event, 0, 0, 0, 0, 0, 0};
                        return morvane_next_event(number, &event, MORVANE_FOREVER);
                    },
                    true},
        WaitingCall{"WaitReady", [](auto n) { return morvane_wait_ready(n, MORVANE_FOREVER); }, false},
        WaitingCall{"Reopen", [](auto n) { return morvane_reopen(n, MORVANE_FOREVER); }, false}),
    [](const auto& test) { return test.param.name; });

TEST_F(LibraryUnreadPipe, ACancelEndsTheSending)
{
    Open();
    BlockedCall call([this] {
        int failed = MORVANE_OK;
        port.Send(Of(std::string(60'000, 'x')), morvane::Forever, failed);
        return failed;
    });
    EXPECT_EQ(call.OutcomeByCancel(port), MORVANE_E_CANCELLED);
}

struct LibraryUnreadFlush : LibraryUnreadPipe
{
    /// Opens the port, sends a message and cancels the flush of it.
    void CancelFlush()
    {
        Open();
        port.Send(Of("x"), Patient, error);
        ASSERT_EQ(error, MORVANE_OK);
        BlockedCall call([this] {
            int failed = MORVANE_OK;
            port.Flush(morvane::Forever, failed);
            return failed;
        });
        EXPECT_EQ(call.OutcomeByCancel(port), MORVANE_E_CANCELLED);
    }
};

TEST_F(LibraryUnreadFlush, ACancelEndsIt)
{
    CancelFlush();
}

std::chrono::milliseconds TimeOfProcessors()
{
    FILETIME unused{};
    FILETIME kernel{};
    FILETIME user{};
    ::GetProcessTimes(::GetCurrentProcess(), &unused, &unused, &kernel, &user);
    const auto ticks = [](const FILETIME& time) {
        return static_cast<std::int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    };
    return milliseconds((ticks(kernel) + ticks(user)) / 10'000);
}

TEST_F(LibraryUnreadFlush, WaitingAfterItsCancelTakesNoProcessor)
{
    ASSERT_NO_FATAL_FAILURE(CancelFlush());
    const auto before = TimeOfProcessors();
    EXPECT_EQ(Receive(milliseconds(1000)), "MORVANE_E_TIMEOUT");
    EXPECT_LT(TimeOfProcessors() - before, milliseconds(100));
}

struct LibraryQueueInterruption : LibraryCalls
{
    ~LibraryQueueInterruption() override
    {
        go.Set();
        port.Close();
    }
    /// The second message is being written, longer than the pipe holds, and the first one's replies have come.
    void SendMoreThanThePipeHolds()
    {
        Serve([this](const std::string& message) {
            if (message == "first") {
                return FakePort::Replies{"reply"};
            }
            go.Wait(INFINITE);
            got += message;
            return FakePort::Replies{};
        });
        options.flags |= MORVANE_QUEUE;
        Open();
        port.Send(Of("first"), Timeout(0), error);
        port.Flush(Patient, error);
        ASSERT_EQ(error, MORVANE_OK);
        void* ready = nullptr;
        ASSERT_EQ(morvane_wait_handle(port.Get(), &ready), MORVANE_OK);
        ASSERT_TRUE(AwaitEvent(port, MORVANE_EVENT_CONNECTED));
        ASSERT_TRUE(support::WaitFor(ready));
        for (const std::string& message : {std::string("small"), large}) {
            port.Send(Of(message), Timeout(0), error);
            ASSERT_EQ(error, MORVANE_OK);
        }
    }
    void ExpectThatItArrivesWhole()
    {
        go.Set();
        port.Flush(Patient, error);
        EXPECT_EQ(error, MORVANE_OK) << morvane_error_name(error);
        EXPECT_EQ(server->Connections(), 1) << "the pipe was reopened";
        port.Close();
        server.reset();
        EXPECT_TRUE(got == "small" + large) << got.size() << " bytes";
    }

    const std::string large = std::string(60'000, 'x');
    const win32::Event go{win32::Event::Kind::ManualReset};
    std::string got; // the server's until its end
};

TEST_F(LibraryQueueInterruption, ACancelLeavesTheQueueAlone)
{
    ASSERT_NO_FATAL_FAILURE(SendMoreThanThePipeHolds());
    BlockedCall call([this] {
        int failed = MORVANE_OK;
        port.Flush(morvane::Forever, failed);
        return failed;
    });
    EXPECT_EQ(call.OutcomeByCancel(port), MORVANE_E_CANCELLED);
    ExpectThatItArrivesWhole();
}

TEST_F(LibraryQueueInterruption, ARequestThatCannotBeSentLeavesTheQueueAlone)
{
    ASSERT_NO_FATAL_FAILURE(SendMoreThanThePipeHolds());
    EXPECT_EQ(Ask("request", Timeout(50)), "MORVANE_E_TIMEOUT");
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_SEM_TIMEOUT));
    ExpectThatItArrivesWhole();
}

} // namespace
