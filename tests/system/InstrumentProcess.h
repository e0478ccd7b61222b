// A program that plays the instrument, as a process of the test.
#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/UniqueName.h"

#include <optional>
#include <string>

class InstrumentProcess
{
public:
    /// Starts `program`, which lies beside the test, with further switches after those that tell the test when
    /// the instrument can be found.
    InstrumentProcess(const std::wstring& program, const std::wstring& switches)
        : m_readyName(support::UniqueName(L"InstrumentReady")),
          m_ready(::CreateEventW(nullptr, TRUE, FALSE, m_readyName.c_str())),
          m_stopName(support::UniqueName(L"InstrumentStop")),
          m_stop(::CreateEventW(nullptr, TRUE, FALSE, m_stopName.c_str())),
          m_process(support::ProgramFolder() / program,
                    L"--ready-event " + m_readyName + L" --stop-event " + m_stopName + L" " + switches)
    {
    }

    bool WaitUntilServed() const { return support::WaitFor(m_ready.Get()); }
    /// Ends it as a crash would and waits for that.
    void Kill() const
    {
        m_process.Kill();
        m_process.WaitForExit();
    }
    /// Ends it as a user would; its exit code, or none when it does not end.
    std::optional<DWORD> Stop() const
    {
        ::SetEvent(m_stop.Get());
        return m_process.WaitForExit();
    }
    /// The same, and what it printed; empty when it does not end.
    std::string Summary() const { return Stop() ? m_process.Output() : std::string(); }
    /// What it has printed so far.
    std::string Output() const { return m_process.Output(); }
    bool WaitUntilSaid(const std::string& part) const
    {
        return support::WaitUntil([&] { return Output().find(part) != std::string::npos; });
    }

private:
    std::wstring m_readyName;
    win32::KernelHandle m_ready;
    std::wstring m_stopName;
    win32::KernelHandle m_stop;
    support::ChildProcess m_process;
};
