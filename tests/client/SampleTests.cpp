// The samples as a user runs them: they ask, print the reply, survive an unplug, and end cleanly.
#include "tests/support/Programs32.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/SimulatorProcess.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace {

/// A program with a keyboard of the test's and its output in a file.
class Sample
{
public:
    explicit Sample(std::wstring commandLine)
    {
        SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
        HANDLE input = nullptr;
        HANDLE keyboard = nullptr;
        ::CreatePipe(&input, &keyboard, &inherited, 0);
        ::SetHandleInformation(keyboard, HANDLE_FLAG_INHERIT, 0);
        const win32::KernelHandle childInput(input);
        m_keyboard.Reset(keyboard);
        const win32::FileHandle output(::CreateFileW(m_file.c_str(), GENERIC_WRITE,
                                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                                     &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        STARTUPINFOW start{};
        start.cb = sizeof start;
        start.dwFlags = STARTF_USESTDHANDLES;
        start.hStdInput = input;
        start.hStdOutput = start.hStdError = output.Get();
        PROCESS_INFORMATION started{};
        if (::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr,
                             support::ProgramFolder().c_str(), &start, &started))
        {
            m_process.Reset(started.hProcess);
            ::CloseHandle(started.hThread);
        }
    }
    ~Sample()
    {
        ::TerminateProcess(m_process.Get(), 1);
        std::error_code ignored;
        std::filesystem::remove(m_file, ignored);
    }
    Sample(const Sample&) = delete;
    Sample& operator=(const Sample&) = delete;

    std::string Output() const
    {
        std::ifstream in(m_file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    /// Waits until it has said that after the first `from` bytes of its output.
    bool Says(const std::string& text, std::size_t from = 0) const
    {
        return support::WaitUntil([&] { return Output().find(text, from) != std::string::npos; },
                                  3 * support::DefaultTimeout);
    }
    void PressEnter()
    {
        DWORD written = 0;
        ::WriteFile(m_keyboard.Get(), "\r\n", 2, &written, nullptr);
    }
    DWORD ExitCode() const
    {
        DWORD code = 0;
        support::WaitFor(m_process.Get(), 3 * support::DefaultTimeout);
        ::GetExitCodeProcess(m_process.Get(), &code);
        return code;
    }

private:
    const std::filesystem::path m_file = std::filesystem::temp_directory_path() / support::UniqueName(L"Sample");
    win32::KernelHandle m_keyboard;
    win32::KernelHandle m_process;
};

class Samples : public testing::Test
{
protected:
    Samples() { simulator.emplace(std::wstring()); }
    void Unplug()
    {
        simulator->Kill();
        simulator.reset();
    }
    static bool RouterEnds()
    {
        return support::WaitUntil([] { return FindProgram(L"MorvanePortRouter.exe") == 0; });
    }
    void ExpectThatItSurvivesAnUnplug(const wchar_t* program)
    {
        Sample sample(L"\"" + (support::ProgramFolder() / program).native() + L"\" \"hello, instrument\"");
        ASSERT_TRUE(sample.Says("hello, instrument")) << sample.Output();
        Unplug();
        // One sentence of the library, whether a request was pending or not.
        ASSERT_TRUE(support::WaitUntil([&] {
            const std::string output = sample.Output();
            return output.find("connection broke") != std::string::npos ||
                   output.find("pipe does not exist") != std::string::npos;
        })) << sample.Output();
        const std::size_t before = sample.Output().size();
        simulator.emplace(std::wstring());
        EXPECT_TRUE(sample.Says("hello, instrument", before)) << sample.Output();
        sample.PressEnter();
        EXPECT_EQ(sample.ExitCode(), 0u) << sample.Output();
        EXPECT_TRUE(RouterEnds()) << "the router was not released";
    }

    RouterSession session{RouterSession::Transport::Simulation};
    std::optional<SimulatorProcess> simulator;
};

TEST_F(Samples, InCSurvivesAnUnplug)
{
    ExpectThatItSurvivesAnUnplug(L"SampleC.exe");
}

TEST_F(Samples, InCFor32BitsSurvivesAnUnplug)
{
    if (!support::Runs32BitPrograms()) {
        ASSERT_FALSE(support::Needs32BitPrograms()) << "there is no 32-bit Wine";
        GTEST_SKIP() << "there is no 32-bit Wine";
    }
    ExpectThatItSurvivesAnUnplug(L"x86\\SampleC.exe");
}

TEST_F(Samples, InCppSurvivesAnUnplug)
{
    ExpectThatItSurvivesAnUnplug(L"SampleCpp.exe");
}

TEST_F(Samples, InGoSurvivesAnUnplug)
{
    if (!std::filesystem::exists(support::ProgramFolder() / L"SampleGo.exe")) {
        GTEST_SKIP() << "built without Go";
    }
    ExpectThatItSurvivesAnUnplug(L"SampleGo.exe");
}

// Once: Wine's script host knows no Sleep.
TEST_F(Samples, InVbScriptAsksAndEnds)
{
    const std::wstring folder = support::ProgramFolder().native();
    ::SetEnvironmentVariableW(L"PATH", (folder + L";C:\\windows\\system32").c_str());
    Sample sample(L"cscript //nologo \"" + folder + L"\\ask.vbs\" hello 1");
    ASSERT_TRUE(sample.Says("|hello|")) << sample.Output();
    EXPECT_EQ(sample.ExitCode(), 0u) << sample.Output();
    EXPECT_TRUE(RouterEnds()) << "the router was not released";
}

} // namespace
