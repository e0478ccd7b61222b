// The parts that bench.exe plays as a child process of itself, which serve a pipe each.
#pragma once

#include "console/Console.h"
#include "tests/support/ChildProcess.h"
#include "win32/Handle.h"

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// How an instrument treats what it gets.
enum class Mode {
    Echo,  // gives it back as it came
    Sink,  // answers every `bytes` of payload with the count of packets that they came in, as a decimal number
    Flood, // answers each packet with `bytes` of payload in packets of FloodPayload
};

inline constexpr std::size_t FloodPayload = 512;

struct InstrumentTask
{
    Mode mode = Mode::Echo;
    std::uint64_t bytes = 0;

    std::string Words() const { return std::to_string(static_cast<int>(mode)) + " " + std::to_string(bytes); }
};

/// A child process in a role, ready for use once constructed; ended by the destructor.
class RoleProcess
{
public:
    /// Throws std::runtime_error when it does not get ready.
    RoleProcess(const std::string& role, std::string pipe, const std::string& task = {});

    /// The pipe that it serves.
    const std::string& Pipe() const noexcept { return m_pipe; }
    DWORD Id() const noexcept { return m_process.Id(); }

private:
    const std::string m_pipe;
    const std::wstring m_readyName;
    const win32::KernelHandle m_ready;
    const support::ChildProcess m_process;
};

RoleProcess Simulator(InstrumentTask task = {});      // takes packets at the simulator's pipe of the router
RoleProcess BareInstrument(InstrumentTask task = {}); // takes messages: without the router the path is one pipe
RoleProcess BarePipeline(const RoleProcess& instrument);
RoleProcess BusInstrument(); // echoes with the simulated instrument's driver, and serves no pipe

/// Plays the role that a RoleProcess called this program for; returns the exit code.
int PlayRole(const std::vector<std::string>& arguments);

// Each sets `ready` when it can be used and runs for as long as its parent lets it.
void PlayInstrument(const std::string& pipe, bool framed, InstrumentTask task, const console::ReadySignal& ready);
void PlayBusInstrument(const console::ReadySignal& ready);
void PlayBarePipeline(const std::string& pipe, const std::string& instrumentPipe,
                      const console::ReadySignal& ready);

/// The only instance of a pipe, made as the router makes its own; `type` is PIPE_TYPE_MESSAGE or PIPE_TYPE_BYTE.
/// Throws std::runtime_error.
win32::FileHandle MakePipe(const std::string& name, DWORD type);

} // namespace bench
