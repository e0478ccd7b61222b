// A client that does everything right, all the time, beside one that does not.
#pragma once

#include "tests/support/PipeClient.h"
#include "win32/Thread.h"

#include <atomic>
#include <string>

/// Sends one request after the other on a thread of its own and expects each to come back. A pipe that breaks is
/// opened again. A request that waited in the router when the instrument went is answered by the next connection,
/// so answers to what was sent before the pipe broke are passed over.
class WellBehavedClient
{
public:
    explicit WellBehavedClient(std::string pipe);
    ~WellBehavedClient() { Stop(); }
    WellBehavedClient(const WellBehavedClient&) = delete;
    WellBehavedClient& operator=(const WellBehavedClient&) = delete;

    const std::string& Pipe() const noexcept { return m_pipe; }
    /// Whether so many more requests, counted from now, are answered in time.
    bool Does(int roundTrips) const;
    /// How often its pipe broke so far.
    int Breaks() const noexcept { return m_breaks; }
    /// How many answers were late or wrong so far.
    int Losses() const noexcept { return m_losses; }
    void Stop();

private:
    void Run();
    void Converse();
    bool AwaitAnswer(const std::string& request);

    const std::string m_pipe;
    support::PipeClient m_client; // the thread's, as the next
    int m_request = 0;
    int m_firstRequest = 0; // since the pipe was opened
    std::atomic<int> m_roundTrips{0};
    std::atomic<int> m_breaks{0};
    std::atomic<int> m_losses{0};
    std::atomic<bool> m_go{true};
    win32::Thread m_thread;
};
