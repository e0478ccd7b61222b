// The parts that bench.exe plays as a child process of itself.
#pragma once

#include "tests/support/ChildProcess.h"
#include "win32/Handle.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// How an instrument treats what it gets.
enum class Mode : std::uint32_t {
    Echo,  // gives it back as it came
    Sink,  // counts payload bytes; sets the event at every `goal` of them
    Flood, // answers with `goal` payload bytes in packets of 512
};

/// Lies in memory that the benchmark and the instrument it plays both see.
struct InstrumentRecord
{
    std::atomic<Mode> mode;
    std::atomic<std::uint64_t> goal;
    std::atomic<std::uint64_t> packets; // so many came, with a payload; what is not framed counts as read
};

/// The record of that name and its auto-reset event; made by whoever comes first.
class SharedInstrument
{
public:
    /// Throws std::runtime_error.
    explicit SharedInstrument(const std::wstring& name);
    ~SharedInstrument() { ::UnmapViewOfFile(m_record); }
    SharedInstrument(const SharedInstrument&) = delete;
    SharedInstrument& operator=(const SharedInstrument&) = delete;

    InstrumentRecord& Record() const noexcept { return *m_record; }
    HANDLE Reached() const noexcept { return m_reached.Get(); }

private:
    win32::KernelHandle m_memory;
    InstrumentRecord* m_record;
    win32::KernelHandle m_reached;
};

/// What a role is called with: its own name, of the event that says it may be used, and what the role wants.
struct RoleCall
{
    std::wstring role;
    std::wstring ready;
    std::wstring pipe;  // that it serves
    std::wstring other; // instruments: the shared record; bare pipeline: the pipe that it opens
};

// Each runs for as long as its parent lets it; returns the exit code.
int PlayInstrument(const RoleCall& call);    // "framed": packets at the simulator's pipe; "bare": at any pipe
int PlayBusInstrument(const RoleCall& call); // "bus": with the simulated instrument's driver
int PlayBarePipeline(const RoleCall& call);  // "pipeline"

/// Plays the role that `arguments` ("--role ROLE READY PIPE OTHER") call for.
int PlayRole(const std::vector<std::string>& arguments);

/// A child process in a role, ready for use once constructed; ended by the destructor.
class RoleProcess
{
public:
    /// Throws std::runtime_error when it does not get ready.
    explicit RoleProcess(const std::wstring& role, const std::wstring& pipe = L"-",
                         const std::wstring& other = L"-");

    DWORD Id() const noexcept { return m_process.Id(); }

private:
    const std::wstring m_readyName;
    const win32::KernelHandle m_ready;
    const support::ChildProcess m_process;
};

} // namespace bench
