// A router with an instrument behind it, and clients in front: what most rows are measured on.
#pragma once

#include "bench/PipeEnd.h"
#include "bench/Roles.h"
#include "bench/SharedRecord.h"
#include "tests/support/RouterSession.h"

#include <memory>

namespace bench {

/// Round trips are started with this, so that nothing of a just opened pipe is measured.
inline constexpr int WarmUps = 5;

/// What a client registers that has no reason for another size. What it writes faster than the router reads
/// arrives merged, and a packet holds 65,535 bytes: a larger buffer would lose what is more.
inline constexpr LONG UsualReadSize = 32768;

/// The instrument of one path, in its own process.
class Instrument
{
public:
    /// A bare pipe, or (`framed`) the simulator's pipe of the router.
    Instrument(const std::wstring& pipe, bool framed);

    void Set(Mode mode, std::uint64_t goal = 0) const;
    InstrumentRecord& Record() const noexcept { return m_shared.Record(); }
    /// Waits until the goal of a sink is reached; throws std::runtime_error when it is not.
    void AwaitGoal() const;
    const std::wstring& Pipe() const noexcept { return m_names.pipe; }
    DWORD Id() const noexcept { return m_process.Id(); }

private:
    RoleNames m_names;
    SharedInstrument m_shared;
    RoleProcess m_process;
};

inline constexpr const wchar_t* SimulatorPipe = L"UsbPipeSimulator";

/// The activated router of `session`; it is released and has ended when this goes.
class RunningRouter
{
public:
    explicit RunningRouter(RouterSession& session);
    ~RunningRouter();
    RunningRouter(const RunningRouter&) = delete;
    RunningRouter& operator=(const RunningRouter&) = delete;

    DWORD Id() const noexcept;
    /// Registers the port and opens its pipe; the instrument must echo. A pipe is made anew every 50 ms until
    /// somebody is connected, so one that has answered is through. `readSize`: of the router's buffer for client
    /// messages.
    std::unique_ptr<PipeEnd> OpenPort(LONG deviceType, ULONG port, LONG readSize = UsualReadSize);
    void Unregister(LONG deviceType, ULONG port) { m_session.UnregisterPort(deviceType, port); }
    RouterSession& Session() noexcept { return m_session; }

private:
    RouterSession& m_session;
};

/// Does `count` round trips of `message`, appends the microseconds of each to `times` if there are any. Throws
/// std::runtime_error when the pipe breaks.
void RoundTrip(PipeEnd& client, std::span<const std::uint8_t> message, std::size_t count,
               std::vector<double>* times);

/// A barePipeline of the path (see BarePipelineRole.cpp) with an instrument and a client of its own.
class BarePipelinePath
{
public:
    BarePipelinePath();
    PipeEnd& Client() noexcept { return m_client; }
    DWORD InstrumentId() const noexcept { return m_instrument.Id(); }
    DWORD Id() const noexcept { return m_process.Id(); }

private:
    Instrument m_instrument;
    RoleNames m_names;
    RoleProcess m_process;
    PipeEnd m_client;
};

/// The path without any router: the client opens the instrument's pipe.
class DirectPath
{
public:
    DirectPath();
    PipeEnd& Client() noexcept { return m_client; }
    Instrument& TheInstrument() noexcept { return m_instrument; }

private:
    Instrument m_instrument;
    PipeEnd m_client;
};

} // namespace bench
