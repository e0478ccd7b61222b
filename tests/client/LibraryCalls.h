// A port of the library at a port that the test plays.
#pragma once

#include "tests/client/AttachedPort.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct LibraryCalls : testing::Test
{
    void Serve(FakePort::Player player, FakePort::Conduct conduct = {})
    {
        server.emplace(std::move(player), std::move(conduct));
        name = Narrow(server->Name());
        options = AttachTo(name);
    }
    void Open()
    {
        port = morvane::Port(options, error);
        ASSERT_EQ(error, MORVANE_OK) << morvane_error_text(error);
    }
    /// The reply's text; the error's name when there is none.
    std::string Ask(std::string_view text, morvane::Timeout timeout = Patient)
    {
        const morvane::Bytes reply = port.Request(morvane::Of(text), timeout, error);
        return error == MORVANE_OK ? TextOf(reply) : morvane_error_name(error);
    }
    std::string Receive(morvane::Timeout timeout = Patient)
    {
        const morvane::Bytes message = port.Receive(timeout, error);
        return error == MORVANE_OK ? TextOf(message) : morvane_error_name(error);
    }

    std::optional<FakePort> server;
    std::string name;
    morvane_options options{};
    int error = MORVANE_OK;
    morvane::Port port;
};

/// A pipe that no thread serves, so that sending waits for what the test does.
struct LibraryUnreadPipe : LibraryCalls
{
    LibraryUnreadPipe()
        : wide(support::UniqueName(L"NoReader")),
          pipe(::CreateNamedPipeW(support::PipePath(wide).c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                  PIPE_TYPE_MESSAGE, 1, 100, 100, 0, nullptr))
    {
        EXPECT_TRUE(pipe);
        name = Narrow(wide);
        options = AttachTo(name);
    }

    const std::wstring wide;
    const win32::FileHandle pipe;
};

/// Answers each message with `reply`, followed by the message.
inline FakePort::Player Answering(std::string reply)
{
    return [reply = std::move(reply)](const std::string& message) { return FakePort::Replies{reply + message}; };
}

inline std::vector<std::string> Numbered(int count)
{
    std::vector<std::string> messages;
    for (int i = 0; i < count; ++i) {
        messages.push_back("message " + std::to_string(i));
    }
    return messages;
}

inline FakePort::Replies Silent(const std::string&)
{
    return {};
}

/// A call on a thread of its own, which another thread is to end.
class BlockedCall
{
public:
    /// Runs `call` and sees that it does not return by itself.
    template <class Body>
    explicit BlockedCall(Body call)
    {
        EXPECT_TRUE(m_thread.Start([this, call] {
            m_begins.Set();
            m_outcome = call();
            m_ended.Set();
        }));
        EXPECT_TRUE(support::WaitFor(m_begins.Get()));
        EXPECT_FALSE(m_ended.Wait(50));
    }
    BlockedCall(const BlockedCall&) = delete;
    BlockedCall& operator=(const BlockedCall&) = delete;

    /// What it returned.
    int Outcome()
    {
        EXPECT_TRUE(support::WaitFor(m_ended.Get()));
        m_thread.Join();
        return m_outcome;
    }

    /// The same when cancels end it. One alone may come before the call.
    int OutcomeByCancel(const morvane::Port& port)
    {
        EXPECT_TRUE(support::WaitUntil([&] {
            port.Cancel();
            return m_ended.Wait(10);
        }));
        return Outcome();
    }

private:
    std::atomic<int> m_outcome{MORVANE_OK};
    const win32::Event m_begins{win32::Event::Kind::ManualReset};
    const win32::Event m_ended{win32::Event::Kind::ManualReset};
    win32::Thread m_thread;
};
