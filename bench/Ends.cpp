#include "bench/Ends.h"

#include "tests/support/UniqueName.h"

namespace bench {

Client::Client(const std::string& pipe, std::uint32_t flags) : m_room(MORVANE_LONGEST_MESSAGE)
{
    morvane_options options = morvane::Options(3, 1);
    options.flags = MORVANE_ATTACH | flags;
    options.name = pipe.c_str();
    options.open_timeout = static_cast<std::uint32_t>(support::DefaultTimeout.count());
    m_port = morvane::Port(options);
}

morvane::View Client::Receive()
{
    int error = MORVANE_OK;
    const std::size_t length = m_port.Receive(m_room, support::DefaultTimeout, error);
    Demand(error == MORVANE_OK, morvane_error_text(error));
    return morvane::View(m_room).first(length);
}

void Client::RoundTrip(morvane::View message)
{
    int error = MORVANE_OK;
    const std::size_t length = m_port.Request(message, m_room, support::DefaultTimeout, error);
    Demand(error == MORVANE_OK, morvane_error_text(error));
    Demand(length == message.size(), "an answer is not as long as its request");
}

RunningRouter::RunningRouter(RouterSession& session) : m_session(session)
{
    Demand(m_session.Activate(), "the router does not start");
}

RunningRouter::~RunningRouter()
{
    m_session.Release();
    if (m_session.WaitForEnd() != 0u) {
        console::Say("FAILED: the router did not end with code 0");
    }
}

std::string RunningRouter::RegisterPort(ULONG port, LONG readSize) const
{
    std::string name = support::UniqueName(std::string_view("BenchPort"));
    Demand(m_session.RegisterPort(3, port, console::Wide(name), readSize) == S_OK, "a port is not registered");
    return name;
}

} // namespace bench
