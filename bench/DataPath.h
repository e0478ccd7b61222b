// A router with an instrument behind it, and clients in front: what most rows are measured on.
#pragma once

#include "bench/PipeEnd.h"
#include "bench/Roles.h"
#include "tests/support/RouterSession.h"

#include <memory>

namespace bench {

/// Round trips are started with this, so that nothing of a just opened pipe is measured.
inline constexpr int WarmUps = 5;

/// What a client registers that has no reason for another size. What it writes faster than the router reads
/// arrives merged, and a packet holds 65,535 bytes: a larger buffer would lose what is more.
inline constexpr LONG UsualReadSize = 32768;

/// Throws std::runtime_error with `what` unless `holds`.
void Demand(bool holds, const char* what);

/// The instrument of one path, in its own process.
class Instrument
{
public:
    /// At the simulator's pipe of the router; echoes at first.
    Instrument() : Instrument(L"framed", L"UsbPipeSimulator") {}

    void Set(Mode mode, std::uint64_t goal = 0) const;
    InstrumentRecord& Record() const noexcept { return m_shared.Record(); }
    /// Waits until the goal of a sink is reached; throws std::runtime_error when it is not.
    void AwaitGoal() const;
    DWORD Id() const noexcept { return m_process.Id(); }

protected:
    Instrument(const std::wstring& role, const std::wstring& pipe);
    const std::wstring m_pipe;

private:
    const std::wstring m_recordName;
    const SharedInstrument m_shared;
    const RoleProcess m_process;
};

/// One at a bare pipe of its own.
class BareInstrument : public Instrument
{
public:
    BareInstrument();
    const std::wstring& Pipe() const noexcept { return m_pipe; }
};

/// The activated router of `session`; it is released and has ended when this goes.
class RunningRouter
{
public:
    explicit RunningRouter(RouterSession& session);
    ~RunningRouter();
    RunningRouter(const RunningRouter&) = delete;
    RunningRouter& operator=(const RunningRouter&) = delete;

    DWORD Id() const noexcept { return ::GetProcessId(m_session.Process()); }
    /// Registers the port and opens its pipe; the instrument must echo. The router recreates a pipe every 50 ms
    /// until a client is connected, so one that has answered is through. `readSize`: of the router's buffer for
    /// client messages.
    std::unique_ptr<PipeEnd> OpenPort(LONG deviceType, ULONG port, LONG readSize = UsualReadSize);
    RouterSession& Session() noexcept { return m_session; }

private:
    RouterSession& m_session;
};

/// Does `count` round trips of `message`, appends the microseconds of each to `times` if there are any. Throws
/// std::runtime_error when the pipe breaks.
void RoundTrip(PipeEnd& client, std::span<const std::uint8_t> message, std::size_t count,
               std::vector<double>* times);

/// A bare pipeline of the path (see BarePipelineRole.cpp) with an instrument and a client of its own.
class BarePipelinePath
{
public:
    BarePipelinePath();
    PipeEnd& Client() noexcept { return m_client; }
    DWORD InstrumentId() const noexcept { return m_instrument.Id(); }
    DWORD Id() const noexcept { return m_process.Id(); }

private:
    const BareInstrument m_instrument;
    const std::wstring m_pipe;
    const RoleProcess m_process;
    PipeEnd m_client;
};

/// The path without any router: the client opens the instrument's pipe.
class DirectPath
{
public:
    DirectPath();
    PipeEnd& Client() noexcept { return m_client; }
    const Instrument& TheInstrument() const noexcept { return m_instrument; }

private:
    const BareInstrument m_instrument;
    PipeEnd m_client;
};

} // namespace bench
