// A client that stays: it sends numbered requests on a port of its own and checks every answer.
#pragma once

#include "tests/support/PipeClient.h"
#include "tests/system/LongRun.h"
#include "tests/system/ServedPort.h"
#include "win32/Thread.h"

#include <atomic>
#include <cstddef>
#include <string>

/// Of all residents together.
struct Answered
{
    std::atomic<std::size_t> count{0};
    std::atomic<bool> failed{false};

    bool HasReached(std::size_t wanted) const { return failed || count >= wanted; }
};

class Resident
{
public:
    /// Sends so many requests; the answer times are those of that number.
    explicit Resident(std::size_t requests) : m_requests(requests), m_times(requests) {}

    bool Open(const std::string& pipe) { return served::Open(m_client, pipe); }
    /// Sends on a thread of its own until all are answered, one was not, or `go` is false.
    void Run(int id, Answered& answered, const std::atomic<bool>& go)
    {
        m_thread.Start([this, id, &answered, &go] {
            for (std::size_t request = 0; request < m_requests && go; ++request) {
                if (!Exchange(id, request)) {
                    answered.failed = true;
                    return;
                }
                ++answered.count;
            }
        });
    }
    void Join() { m_thread.Join(); }
    /// Once joined.
    const longrun::AnswerTimes& Times() const { return m_times; }

private:
    bool Exchange(int id, std::size_t request)
    {
        std::string text = std::to_string(id) + ":" + std::to_string(request) + ":";
        text.resize(20 + request % 700, 'x');
        const auto start = std::chrono::steady_clock::now();
        if (!m_client.Write(text) || m_client.Read() != text) {
            return false;
        }
        m_times.Add(request, std::chrono::duration_cast<std::chrono::microseconds>(
                                 std::chrono::steady_clock::now() - start));
        return true;
    }

    const std::size_t m_requests;
    support::PipeClient m_client; // the thread's until it is joined, as the next
    longrun::AnswerTimes m_times;
    win32::Thread m_thread;
};
