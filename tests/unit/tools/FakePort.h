// A port's pipe as the router serves it, played by the test.
#pragma once

#include "tests/support/UniqueName.h"
#include "win32/Event.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"
#include "win32/Thread.h"

#include <atomic>
#include <functional>
#include <string>
#include <vector>

/// Serves its pipe on a thread of its own until the end.
class FakePort
{
public:
    /// What is written back for a message, one message each.
    using Replies = std::vector<std::string>;
    using Player = std::function<Replies(const std::string& message)>;

    struct Conduct
    {
        int breaksAtFirst = 0;   // connections that break as soon as they are made
        int breaksAtMessage = 0; // instead of replying to that message, counted from 1 over all connections; once
        bool messages = true;    // writes messages, as the router does
        std::string greeting;    // written to each client, when not empty
    };

    FakePort(Player player, Conduct conduct);
    explicit FakePort(Player player) : FakePort(std::move(player), Conduct{}) {}
    ~FakePort();
    FakePort(const FakePort&) = delete;
    FakePort& operator=(const FakePort&) = delete;

    const std::wstring& Name() const noexcept { return m_name; }
    std::wstring Path() const { return support::PipePath(m_name); }
    int Connections() const noexcept { return m_connections; }

private:
    void Serve();
    bool Connect(HANDLE pipe);
    void Talk(HANDLE pipe);
    bool Completed(win32::OverlappedOperation& operation, HANDLE pipe, DWORD& length);

    const Player m_player;
    Conduct m_conduct;
    const std::wstring m_name = support::UniqueName(L"FakePort");
    const win32::Event m_stop{win32::Event::Kind::ManualReset};
    const win32::Event m_served{win32::Event::Kind::ManualReset};
    std::atomic<int> m_connections{0};
    int m_messages = 0; // of the thread
    win32::Thread m_thread;
};

inline FakePort::Replies Echo(const std::string& message)
{
    return {message};
}

/// Writes a message to a pipe that the test serves by itself; whether the pipe took it.
bool WriteMessage(HANDLE pipe, const std::string& text);
