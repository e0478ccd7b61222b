#include "tests/system/hostile/WellBehavedClient.h"

#include <cstdio>

WellBehavedClient::WellBehavedClient(std::string pipe) : m_pipe(std::move(pipe))
{
    m_thread.Start([this] { Run(); });
}

bool WellBehavedClient::Does(int roundTrips) const
{
    const int wanted = m_roundTrips + roundTrips;
    return support::WaitUntil([&] { return m_roundTrips >= wanted; });
}

void WellBehavedClient::Stop()
{
    m_go = false;
    m_thread.Join();
}

void WellBehavedClient::Run()
{
    while (m_go) {
        if (m_client.TryOpen(m_pipe)) {
            Converse();
            m_client.Close();
        } else {
            ::Sleep(2); // between two tries: no event announces a pipe
        }
    }
}

void WellBehavedClient::Converse()
{
    m_firstRequest = m_request + 1;
    while (m_go) {
        std::string request = "request " + std::to_string(++m_request) + ' ';
        request.resize(20 + static_cast<std::size_t>(m_request % 300), 'x');
        if (!m_client.Write(request) || !AwaitAnswer(request)) {
            ++m_breaks;
            return;
        }
    }
}

/// False when the pipe broke.
bool WellBehavedClient::AwaitAnswer(const std::string& request)
{
    for (;;) {
        const auto answer = m_client.Read();
        if (answer == request) {
            ++m_roundTrips;
            return true;
        }
        if (!answer && m_client.Error() != WAIT_TIMEOUT) {
            return false;
        }
        int earlier = 0;
        if (!answer || std::sscanf(answer->c_str(), "request %d ", &earlier) != 1 || earlier >= m_firstRequest) {
            ++m_losses;
            std::printf("well-behaved client: '%.30s' was answered by '%.30s'\n", request.c_str(),
                        answer.value_or("nothing").c_str());
            return true;
        }
    }
}
