// The built InstrumentSimulator as a process of the test.
#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/UniqueName.h"

#include <string>

class SimulatorProcess
{
public:
    /// Starts it with further switches behind those that tell the test when the pipe is served.
    explicit SimulatorProcess(const std::wstring& switches)
        : m_readyName(support::UniqueName(L"SimulatorReady")),
          m_ready(::CreateEventW(nullptr, TRUE, FALSE, m_readyName.c_str())),
          m_stopName(support::UniqueName(L"SimulatorStop")),
          m_stop(::CreateEventW(nullptr, TRUE, FALSE, m_stopName.c_str())),
          m_process(support::ProgramFolder() / L"InstrumentSimulator.exe",
                    L"--quiet --ready-event " + m_readyName + L" --stop-event " + m_stopName + L" " + switches)
    {
    }

    bool WaitUntilServed() const { return support::WaitFor(m_ready.Get()); }
    /// Ends it as a crash would and waits for that.
    void Kill() const
    {
        m_process.Kill();
        m_process.WaitForExit();
    }
    /// Ends it as a user would and returns its summary; empty when it does not end.
    std::string Summary() const
    {
        ::SetEvent(m_stop.Get());
        return m_process.WaitForExit() ? m_process.Output() : std::string();
    }

private:
    std::wstring m_readyName;
    win32::KernelHandle m_ready;
    std::wstring m_stopName;
    win32::KernelHandle m_stop;
    support::ChildProcess m_process;
};
