// The router with nothing to do, in the ways in which it can have nothing to do.
#pragma once

#include "bench/DataPath.h"

#include <array>
#include <memory>
#include <vector>

namespace bench {

enum class IdleState { Connected, NobodyConnected, NoInstrument };
inline constexpr std::array AllIdleStates{IdleState::Connected, IdleState::NobodyConnected,
                                          IdleState::NoInstrument};

/// A router with eight ports in that state, for as long as it lives.
class IdleRouter
{
public:
    IdleRouter(RouterSession& session, IdleState state);
    ~IdleRouter();
    IdleRouter(const IdleRouter&) = delete;
    IdleRouter& operator=(const IdleRouter&) = delete;

    static const char* NameOf(IdleState state);
    /// Wake-ups a second that the waits with a time in them ask for.
    static double StatedWakeUps(IdleState state);
    DWORD Id() const noexcept { return m_router->Id(); }

private:
    std::unique_ptr<Instrument> m_instrument;
    std::unique_ptr<RunningRouter> m_router;
    std::vector<std::unique_ptr<PipeEnd>> m_clients;
};

} // namespace bench
