// The built tools as processes of a test.
#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/UniqueName.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>

/// One run of a tool, from its start to its exit code.
class ToolRun
{
public:
    ToolRun(const std::wstring& program, const std::wstring& arguments)
        : m_process(support::ProgramFolder() / (program + L".exe"), arguments)
    {
    }

    /// -1 when it did not end in time.
    int ExitCode() const
    {
        const auto code = m_process.WaitForExit();
        return code ? static_cast<int>(*code) : -1;
    }
    /// Both channels, lines ended by "\n".
    std::string Output() const
    {
        std::string output = m_process.Output();
        std::erase(output, '\r');
        return output;
    }
    bool Said(const std::string& part) const { return Output().find(part) != std::string::npos; }
    bool WaitUntilSaid(const std::string& part) const
    {
        return support::WaitUntil([&] { return Said(part); });
    }
    bool Running() const { return m_process.Running(); }

private:
    support::ChildProcess m_process;
};

/// Lines in `text`, the last with or without its end.
inline std::size_t LinesIn(const std::string& text)
{
    const auto ends = std::count(text.begin(), text.end(), '\n');
    return static_cast<std::size_t>(ends) + (text.empty() || text.back() == '\n' ? 0 : 1);
}

/// A command line that a tool refuses, and a part of what it says then.
struct WrongCommandLine
{
    const wchar_t* arguments;
    const char* says;
};

/// The refusal: exit code 2 and one line.
inline void ExpectRefused(const std::wstring& program, const WrongCommandLine& wrong)
{
    const ToolRun run(program, wrong.arguments);
    EXPECT_EQ(run.ExitCode(), 2);
    EXPECT_EQ(LinesIn(run.Output()), 1u) << run.Output();
    EXPECT_TRUE(run.Said(wrong.says)) << run.Output();
}

/// A named event of the test, for a tool to set or to wait for.
class NamedEvent
{
public:
    explicit NamedEvent(const std::wstring& prefix)
        : m_name(support::UniqueName(prefix)), m_event(::CreateEventW(nullptr, TRUE, FALSE, m_name.c_str()))
    {
    }

    const std::wstring& Name() const noexcept { return m_name; }
    bool Wait() const { return support::WaitFor(m_event.Get()); }
    void Set() const { ::SetEvent(m_event.Get()); }

private:
    std::wstring m_name;
    win32::KernelHandle m_event;
};
