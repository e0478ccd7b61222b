// The two ends of what most rows measure: a running router, and a client at the pipe of a port or at a bare one.
#pragma once

#include "bench/Measure.h"
#include "bench/Roles.h"
#include "client/morvane_client.hpp"
#include "tests/support/RouterSession.h"

namespace bench {

/// A client program at a served pipe, on any path: a port of the client library. Throws
/// std::runtime_error when the pipe does not open or an answer does not come.
class Client
{
public:
    /// `flags`: of the library, besides MORVANE_ATTACH.
    explicit Client(const std::string& pipe, std::uint32_t flags = 0);

    void Send(morvane::View message) const { m_port.Send(message, support::DefaultTimeout); }
    /// The next message; valid until the next call.
    morvane::View Receive();
    /// Asks, and waits for an answer that is as long.
    void RoundTrip(morvane::View message);

private:
    std::vector<std::uint8_t> m_room;
    morvane::Port m_port;
};

/// The activated router of `session`; it is released and has ended when this is destroyed, so clients go before.
class RunningRouter
{
public:
    /// What a client registers that has no reason for another size. What it writes faster than the router reads
    /// arrives merged, and a packet holds 65,535 bytes: a larger buffer would lose what is more.
    static constexpr LONG UsualReadSize = 32768;

    explicit RunningRouter(RouterSession& session);
    ~RunningRouter();
    RunningRouter(const RunningRouter&) = delete;
    RunningRouter& operator=(const RunningRouter&) = delete;

    DWORD Id() const noexcept { return ::GetProcessId(m_session.Process()); }
    /// Registers port 3,`port` and returns the name of its pipe. The clients of all ports so share the session's
    /// object: one of the library's own for each would count as memory of its port. `readSize`: of the router's
    /// buffer for client messages.
    std::string RegisterPort(ULONG port, LONG readSize = UsualReadSize) const;

private:
    RouterSession& m_session;
};

} // namespace bench
