// What becomes of messages that are sent: they do not merge, and a queue takes what the router reads later.
#include "tests/client/LibraryCalls.h"
#include "tests/support/PipeClient.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using morvane::Of;
using morvane::Timeout;

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

} // namespace
