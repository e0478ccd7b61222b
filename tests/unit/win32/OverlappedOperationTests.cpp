#include "tests/support/PatchedImport.h"
#include "tests/support/TestSupport.h"
#include "win32/OverlappedOperation.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>
#include <array>
#include <string>

namespace {

using support::WaitFor;
using win32::Expectation;
using win32::FileHandle;
using win32::OverlappedOperation;

/// The control code of ConnectNamedPipe, which only the kernel's headers name.
constexpr DWORD ListenCode = 0x110008;

/// Both ends of a message pipe; the client's end opens it when asked to.
class OverlappedOperationTest : public ::testing::Test
{
protected:
    OverlappedOperationTest()
        : m_path(support::PipePath(support::UniqueName(L"Overlapped"))),
          m_server(::CreateNamedPipeW(m_path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED, PIPE_TYPE_MESSAGE,
                                      1, 4096, 4096, 0, nullptr))
    {
        EXPECT_TRUE(m_server);
    }

    void OpenClient()
    {
        m_client.Reset(::CreateFileW(m_path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_OVERLAPPED, nullptr));
        ASSERT_TRUE(m_client);
    }

    void ClientSays(const std::string& text)
    {
        OverlappedOperation write;
        DWORD written = 0;
        ASSERT_TRUE(write.Write(m_client.Get(), text.data(), static_cast<DWORD>(text.size())));
        ASSERT_TRUE(write.CompletedAtStart() || WaitFor(write.EventHandle()));
        ASSERT_TRUE(write.Finish(m_client.Get(), written));
    }

    std::wstring m_path;
    FileHandle m_server;
    FileHandle m_client;
    std::array<char, 64> m_buffer{};
    DWORD m_transferred = 0;
};

TEST_F(OverlappedOperationTest, AControlIsPendingUntilItIsAnswered)
{
    OverlappedOperation listen;
    ASSERT_TRUE(listen.Control(m_server.Get(), ListenCode, nullptr, 0, nullptr, 0));
    EXPECT_FALSE(listen.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_IO_INCOMPLETE));
    OpenClient();
    ASSERT_TRUE(WaitFor(listen.EventHandle()));
    EXPECT_TRUE(listen.Finish(m_server.Get(), m_transferred));
}

TEST_F(OverlappedOperationTest, ARefusedControlTellsWhyAtItsFinish)
{
    OpenClient();
    OverlappedOperation listen;
    ASSERT_FALSE(listen.Control(m_server.Get(), ListenCode, nullptr, 0, nullptr, 0));
    EXPECT_FALSE(listen.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_PIPE_CONNECTED));
}

TEST_F(OverlappedOperationTest, ConnectingIsPendingUntilAClientComes)
{
    OverlappedOperation connect;
    ASSERT_TRUE(connect.ConnectPipe(m_server.Get()));
    EXPECT_TRUE(connect.IsPending());
    EXPECT_FALSE(connect.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_IO_INCOMPLETE));
    EXPECT_TRUE(connect.IsPending());
    OpenClient();
    ASSERT_TRUE(WaitFor(connect.EventHandle()));
    EXPECT_TRUE(connect.Finish(m_server.Get(), m_transferred));
    EXPECT_FALSE(connect.IsPending());
}

TEST_F(OverlappedOperationTest, AReadAheadOfTheDataGetsIt)
{
    OpenClient();
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    ClientSays("hello");
    ASSERT_TRUE(WaitFor(read.EventHandle()));
    ASSERT_TRUE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(std::string(m_buffer.data(), m_transferred), "hello");
}

TEST_F(OverlappedOperationTest, AReadAfterTheDataGetsItToo)
{
    OpenClient();
    ClientSays("early");
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    ASSERT_TRUE(read.CompletedAtStart() || WaitFor(read.EventHandle()));
    ASSERT_TRUE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(std::string(m_buffer.data(), m_transferred), "early");
}

TEST_F(OverlappedOperationTest, TellsWhetherItWasCompleteAtItsStart)
{
    OpenClient();
    OverlappedOperation read;
    EXPECT_FALSE(read.CompletedAtStart());
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    EXPECT_FALSE(read.CompletedAtStart());
    ClientSays("late");
    ASSERT_TRUE(WaitFor(read.EventHandle()));
    EXPECT_FALSE(read.CompletedAtStart());
    ASSERT_TRUE(read.Finish(m_server.Get(), m_transferred));
    ClientSays("early");
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    EXPECT_TRUE(read.CompletedAtStart());
    ASSERT_TRUE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_FALSE(read.CompletedAtStart());
    EXPECT_EQ(std::string(m_buffer.data(), m_transferred), "early");
}

TEST_F(OverlappedOperationTest, TheSameObjectServesManyOperations)
{
    OpenClient();
    OverlappedOperation read;
    for (const char* const text : {"one", "two", "three"}) {
        ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
        ClientSays(text);
        ASSERT_TRUE(WaitFor(read.EventHandle()));
        ASSERT_TRUE(read.Finish(m_server.Get(), m_transferred));
        EXPECT_EQ(std::string(m_buffer.data(), m_transferred), text);
    }
}

TEST_F(OverlappedOperationTest, AResetThatComesBeforeTheCompletionIsNotTheLastOne)
{
    OpenClient();
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    read.ResetEvent();
    ClientSays("text");
    ASSERT_TRUE(WaitFor(read.EventHandle()));
    ASSERT_TRUE(read.Finish(m_server.Get(), m_transferred));
    read.ResetEvent();
    EXPECT_FALSE(WaitFor(read.EventHandle(), std::chrono::milliseconds(0)));
}

TEST_F(OverlappedOperationTest, AnEventThatWasSignalledByHandOrByACancellationIsResetAsWell)
{
    OpenClient();
    OverlappedOperation read;
    read.ResetEvent();
    read.SignalEvent();
    ASSERT_TRUE(WaitFor(read.EventHandle()));
    read.ResetEvent();
    EXPECT_FALSE(WaitFor(read.EventHandle(), std::chrono::milliseconds(0)));
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    read.Cancel();
    read.ResetEvent();
    EXPECT_FALSE(WaitFor(read.EventHandle(), std::chrono::milliseconds(0)));
}

TEST_F(OverlappedOperationTest, ARefusedStartIsReportedByFinishWithoutAnEvent)
{
    OpenClient();
    m_client.Reset();
    OverlappedOperation read;
    EXPECT_FALSE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    EXPECT_FALSE(read.IsPending());
    EXPECT_FALSE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
}

TEST_F(OverlappedOperationTest, APendingReadFailsWhenTheOtherEndGoes)
{
    OpenClient();
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    m_client.Reset();
    ASSERT_TRUE(WaitFor(read.EventHandle()));
    EXPECT_FALSE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
    EXPECT_FALSE(read.IsPending());
}

TEST_F(OverlappedOperationTest, CancellingLeavesTheBufferAlone)
{
    OpenClient();
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    read.Cancel();
    EXPECT_FALSE(read.IsPending());
    ClientSays("late");
    EXPECT_EQ(m_buffer, (std::array<char, 64>{}));
    EXPECT_FALSE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_OPERATION_ABORTED));
}

TEST_F(OverlappedOperationTest, DestructionEndsWhatIsPending)
{
    OpenClient();
    {
        OverlappedOperation read;
        ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    }
    ClientSays("late");
    EXPECT_EQ(m_buffer, (std::array<char, 64>{}));
    // The message was not eaten by a read that has no owner any more.
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    ASSERT_TRUE(read.CompletedAtStart() || WaitFor(read.EventHandle()));
    EXPECT_TRUE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(std::string(m_buffer.data(), m_transferred), "late");
}

TEST_F(OverlappedOperationTest, StartingAnewCancelsTheOneBefore)
{
    OpenClient();
    std::array<char, 64> second{};
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    ASSERT_TRUE(read.Read(m_server.Get(), second.data(), static_cast<DWORD>(second.size())));
    ClientSays("second");
    ASSERT_TRUE(WaitFor(read.EventHandle()));
    ASSERT_TRUE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(std::string(second.data(), m_transferred), "second");
    EXPECT_EQ(m_buffer, (std::array<char, 64>{}));
}

TEST_F(OverlappedOperationTest, AClientBeforeTheConnectIsAConnectDoneAtOnce)
{
    OpenClient();
    OverlappedOperation connect;
    EXPECT_TRUE(connect.ConnectPipe(m_server.Get()));
    EXPECT_EQ(connect.Expected(), Expectation::Now);
    EXPECT_TRUE(WaitFor(connect.EventHandle()));
    EXPECT_TRUE(connect.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(connect.Expected(), Expectation::Never);
}

TEST_F(OverlappedOperationTest, ExpectsItsEndUntilTheResultIsTaken)
{
    OpenClient();
    OverlappedOperation read;
    EXPECT_EQ(read.Expected(), Expectation::Never);
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    EXPECT_EQ(read.Expected(), Expectation::NotYet);
    ClientSays("text");
    ASSERT_TRUE(WaitFor(read.EventHandle()));
    EXPECT_EQ(read.Expected(), Expectation::Maybe);
    ASSERT_TRUE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(read.Expected(), Expectation::Never);
    EXPECT_TRUE(read.Finish(m_server.Get(), m_transferred)) << "the same result again";
    EXPECT_EQ(m_transferred, 4u);
}

TEST_F(OverlappedOperationTest, ARefusedStartIsExpectedWhenReported)
{
    OpenClient();
    m_client.Reset();
    OverlappedOperation read;
    EXPECT_FALSE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    EXPECT_EQ(read.Expected(), Expectation::Never);
    read.ReportRefusal();
    EXPECT_EQ(read.Expected(), Expectation::Now);
    EXPECT_FALSE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
    EXPECT_EQ(read.Expected(), Expectation::Never);
}

TEST_F(OverlappedOperationTest, CancellingTakesAResultThatWasThereBefore)
{
    OpenClient();
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    ClientSays("just in time");
    EXPECT_TRUE(read.CancelAndFinish(m_transferred));
    EXPECT_EQ(std::string(m_buffer.data(), m_transferred), "just in time");
    EXPECT_FALSE(read.CancelAndFinish(m_transferred)) << "only once";
    EXPECT_EQ(m_transferred, 0u);
}

TEST_F(OverlappedOperationTest, CancellingTakesWhatWasDoneAtOnce)
{
    OpenClient();
    ClientSays("early");
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    EXPECT_TRUE(read.CancelAndFinish(m_transferred));
    EXPECT_EQ(std::string(m_buffer.data(), m_transferred), "early");
}

TEST_F(OverlappedOperationTest, CancellingGivesNoResultThatWasTaken)
{
    OpenClient();
    ClientSays("early");
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    ASSERT_TRUE(read.Finish(m_server.Get(), m_transferred));
    EXPECT_FALSE(read.CancelAndFinish(m_transferred));
}

TEST_F(OverlappedOperationTest, CancellingAnIdleReadGivesNone)
{
    OpenClient();
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    EXPECT_FALSE(read.CancelAndFinish(m_transferred));
    EXPECT_FALSE(read.IsPending());
}

BOOL WINAPI NoCancel(HANDLE, LPOVERLAPPED)
{
    ::SetLastError(ERROR_NOT_FOUND);
    return FALSE;
}

TEST_F(OverlappedOperationTest, ACancelThatFindsNothingStillWaitsForTheResult)
{
    OpenClient();
    OverlappedOperation read;
    ASSERT_TRUE(read.Read(m_server.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())));
    const support::PatchedImport patch("CancelIoEx", reinterpret_cast<void*>(NoCancel));
    win32::Thread client;
    client.Start([&] {
        ::Sleep(20); // the driver's time: what is simulated, not what is waited for
        DWORD written = 0;
        OverlappedOperation write;
        write.Write(m_client.Get(), "late", 4);
        support::WaitFor(write.EventHandle());
        write.Finish(m_client.Get(), written);
    });
    EXPECT_TRUE(read.CancelAndFinish(m_transferred));
    EXPECT_EQ(std::string(m_buffer.data(), m_transferred), "late");
    client.Join();
}

} // namespace
