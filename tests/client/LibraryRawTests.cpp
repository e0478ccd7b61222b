// Ports for messages that carry lengths and numbers of their own, at a pipe that the test serves.
#include "tests/client/LibraryCalls.h"

#include <atomic>
#include <string>

namespace {

using morvane::Of;
using morvane::Timeout;

struct LibraryRaw : LibraryCalls
{
    ~LibraryRaw() override
    {
        begin.Set();
        port.Close();
    }
    /// Reads the first message at once and the others when the test says so.
    void ServeHeldUp(std::uint32_t flags)
    {
        Serve([this](const std::string& message) {
            got += message;
            bytes += message.size();
            ++reads;
            begin.Wait(INFINITE);
            return FakePort::Replies{};
        });
        options.flags |= flags;
        options.queue_limit = 1; // a message that was taken is in the pipe when the next but one is taken
        Open();
    }
    void SendAll(int count)
    {
        for (const std::string& message : Numbered(count)) {
            ASSERT_TRUE(support::WaitUntil([&] {
                port.Send(Of(message), Timeout(0), error);
                return error != MORVANE_E_QUEUE_FULL;
            }));
            ASSERT_EQ(error, MORVANE_OK) << morvane_error_name(error);
            all += message;
        }
    }
    /// Everything has arrived, in fewer pieces than were sent.
    void ExpectThatAllArrivedMerged(int count)
    {
        begin.Set();
        port.Flush(Patient, error);
        EXPECT_EQ(error, MORVANE_OK);
        // What it has read the server may still have to note.
        EXPECT_TRUE(support::WaitUntil([this] { return bytes == all.size(); }));
        port.Close();
        server.reset();
        EXPECT_EQ(got, all);
        EXPECT_LT(reads, count);
    }

    const win32::Event begin{win32::Event::Kind::ManualReset};
    std::string got; // the server's until its end
    std::string all;
    std::atomic<std::size_t> bytes{0};
    std::atomic<int> reads{0};
};

TEST_F(LibraryRaw, SendsDoNotWaitForTheRouter)
{
    ServeHeldUp(MORVANE_RAW);
    SendAll(20);
    ExpectThatAllArrivedMerged(20);
}

TEST_F(LibraryRaw, QueuedSendsDoNotWaitForTheRouter)
{
    ServeHeldUp(MORVANE_RAW | MORVANE_QUEUE);
    SendAll(20);
    // The server takes the first message. It is held up until nearly all others are in the pipe, in one piece.
    ExpectThatAllArrivedMerged(20);
}

TEST_F(LibraryRaw, FlushWaitsForTheRouter)
{
    ServeHeldUp(MORVANE_RAW);
    SendAll(2);
    ASSERT_TRUE(support::WaitUntil([this] { return reads == 1; }));
    SendAll(1);
    port.Flush(Timeout(50), error);
    EXPECT_EQ(error, MORVANE_E_TIMEOUT);
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_SEM_TIMEOUT));
    begin.Set();
    port.Flush(Patient, error);
    EXPECT_EQ(error, MORVANE_OK);
}

TEST_F(LibraryRaw, AMessageMayBeLongerThanTheReadSize)
{
    Serve(Echo);
    options.flags |= MORVANE_RAW;
    options.read_size = 4;
    Open();
    EXPECT_EQ(Ask("0123456789"), "0123456789");
    EXPECT_EQ(Ask(std::string(MORVANE_LONGEST_MESSAGE + 1, 'x')), "MORVANE_E_TOO_LONG");
}

TEST_F(LibraryRaw, ALateReplyIsToldByTheMatch)
{
    Serve([this](const std::string& message) {
        if (message == "slow") {
            begin.Wait(INFINITE);
        }
        return FakePort::Replies{message};
    });
    options.flags |= MORVANE_RAW;
    Open();
    const auto ask = [this](std::string_view text, Timeout timeout) {
        const auto isReply = [text](morvane::View message) { return message.size() == text.size(); };
        return TextOf(port.RequestMatch(Of(text), isReply, timeout, error));
    };
    ask("slow", Timeout(20));
    EXPECT_EQ(error, MORVANE_E_TIMEOUT);
    EXPECT_EQ(::GetLastError(), 0U) << "it was written";
    begin.Set();
    EXPECT_EQ(ask("quick", Patient), "quick");
    EXPECT_EQ(TextOf(port.ReceiveUnsolicited(Patient, error)), "slow");
}

TEST_F(LibraryUnreadPipe, ARequestThatIsNotReadSaysSo)
{
    Open();
    EXPECT_EQ(Ask(std::string(60'000, 'x'), Timeout(50)), "MORVANE_E_TIMEOUT");
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_SEM_TIMEOUT));
}

TEST_F(LibraryUnreadPipe, AReplyDoesNotSayThatLaterRawMessagesWereRead)
{
    options.flags |= MORVANE_RAW | MORVANE_QUEUE;
    Open();
    BlockedCall call([this] { return Ask("a") == "re:a" ? MORVANE_OK : MORVANE_E_INTERNAL; });
    port.Send(Of("later"), Timeout(0), error);
    ASSERT_EQ(error, MORVANE_OK);
    DWORD length = 0;
    EXPECT_TRUE(support::WaitUntil([&] {
        return ::PeekNamedPipe(pipe.Get(), nullptr, 0, nullptr, &length, nullptr) && length == sizeof "alater" - 1;
    }));
    win32::OverlappedOperation reply;
    EXPECT_TRUE(reply.Write(pipe.Get(), "re:a", 4));
    EXPECT_EQ(call.Outcome(), MORVANE_OK);
    port.Flush(Timeout(50), error);
    EXPECT_EQ(error, MORVANE_E_TIMEOUT);
}

} // namespace
