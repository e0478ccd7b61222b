// A program that a test starts, and that ends with the test.
#pragma once

#include "tests/support/WaitUntil.h"
#include "win32/Handle.h"

#include <filesystem>
#include <optional>
#include <string>

namespace support {

/// Killed at the end if it still runs, together with everything it started. Its output goes to a file of its own.
/// One thread.
class ChildProcess
{
public:
    /// Starts `program` with `arguments` in the program's folder. Running() tells whether that worked.
    ChildProcess(const std::filesystem::path& program, const std::wstring& arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    DWORD Id() const noexcept { return m_id; }
    HANDLE Process() const noexcept { return m_process.Get(); }
    bool Running() const noexcept;

    /// The exit code once it has ended; none when `timeout` is over first.
    std::optional<DWORD> WaitForExit(std::chrono::milliseconds timeout = DefaultTimeout) const;
    /// Ends it as a crash would.
    void Kill() const noexcept;
    /// What it has printed so far, on both channels.
    std::string Output() const;

private:
    std::filesystem::path m_output;
    win32::KernelHandle m_job;
    win32::KernelHandle m_process;
    DWORD m_id = 0;
};

/// The folder of the running test program, where the other programs of the build lie.
std::filesystem::path ProgramFolder();

} // namespace support
