// The parts that bench.exe plays as a child process of itself.
#pragma once

#include "tests/support/ChildProcess.h"

#include <string>
#include <vector>

namespace bench {

/// Runs the role named in `arguments` ("--role NAME ..."), for as long as its parent lets it; the exit code.
int PlayRole(const std::vector<std::string>& arguments);

/// What a role is called with.
struct RoleNames
{
    std::wstring pipe;      // that it serves
    std::wstring simulator; // barePipeline: the pipe that it opens
    std::wstring ready;     // event: it may be used now
    std::wstring record;    // instruments: name of the shared record
    bool framed = false;    // pipe instrument: packets as the router sends them
};

int PlayInstrument(const RoleNames& names);    // behind a pipe
int PlayBusInstrument(const RoleNames& names); // behind the simulated instrument's driver
int PlayBarePipeline(const RoleNames& names);

/// A child process in a role, ready for use once constructed; ended by the destructor.
class RoleProcess
{
public:
    /// Throws std::runtime_error when it does not get ready.
    RoleProcess(const std::wstring& role, RoleNames names);

    DWORD Id() const noexcept { return m_process->Id(); }

private:
    std::unique_ptr<support::ChildProcess> m_process;
};

} // namespace bench
