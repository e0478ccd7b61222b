#include "bench/IdleStates.h"

#include "tests/support/UniqueName.h"

namespace bench {

namespace {

constexpr int Ports = 8;

} // namespace

IdleRouter::IdleRouter(RouterSession& session, IdleState state)
{
    if (state != IdleState::NoInstrument) {
        m_instrument = std::make_unique<Instrument>(SimulatorPipe, true);
    }
    m_router = std::make_unique<RunningRouter>(session);
    for (ULONG port = 1; port <= Ports; ++port) {
        if (state == IdleState::Connected) {
            m_clients.push_back(m_router->OpenPort(3, port));
        } else {
            session.RegisterPort(3, port, support::UniqueName(L"BenchIdle"));
        }
    }
}

IdleRouter::~IdleRouter()
{
    m_clients.clear();
}

const char* IdleRouter::NameOf(IdleState state)
{
    switch (state) {
    case IdleState::Connected: return "8 ports connected and quiet";
    case IdleState::NobodyConnected: return "8 ports, nobody connected";
    case IdleState::NoInstrument: return "8 ports, no instrument";
    }
    return "";
}

double IdleRouter::StatedWakeUps(IdleState state)
{
    // The reply thread's time-out of 1000 ms is not among them: it waits without the server.
    constexpr double Tray = 3;         // its timer of 1000 ms, and the answers of the taskbar that it tells
    constexpr double PortTimeOut = 20; // every 50 ms
    // A quiet second queues an idle packet: the time-out, and the echo of this instrument, if it takes its time.
    constexpr double CommandThread = 2;
    switch (state) {
    // With nobody connected the pipe is made anew after each time-out, by an event that is signalled already when
    // it is waited for.
    case IdleState::Connected:
    case IdleState::NobodyConnected: return Tray + CommandThread + Ports * PortTimeOut;
    // Ports look for a connection once a second, the command thread for the instrument every 10 ms.
    case IdleState::NoInstrument: return Tray + Ports + 100;
    }
    return 0;
}

} // namespace bench
