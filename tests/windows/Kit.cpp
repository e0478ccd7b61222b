// Everything that the folder made by ./windows-kit does on a PC but for its copying there and its removal.
#include "tests/windows/Kit.h"

#include "tests/support/ChildProcess.h"

#include <winternl.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <sstream>

namespace windowscheck {

namespace {

using support::ChildProcess;

constexpr std::chrono::minutes ProgramLimit{10};

struct TestProgram
{
    const wchar_t* name;
    const wchar_t* filter;
};

/// What is left out of the last would register programs, or be taken for an installed router.
constexpr std::array TestPrograms{TestProgram{L"unit_trace", L"*"},
                                  TestProgram{L"unit_win32", L"*"},
                                  TestProgram{L"unit_firmware", L"*"},
                                  TestProgram{L"unit_ports", L"*"},
                                  TestProgram{L"unit_diag", L"*"},
                                  TestProgram{L"unit_tools", L"*"},
                                  TestProgram{L"unit_usb", L"*"},
                                  TestProgram{L"unit_transport", L"*"},
                                  TestProgram{L"unit_host", L"-Registration*:ComServer*:Module.*:ModuleRun.*"}};

void Say(const std::string& line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

std::string Narrow(const wchar_t* text)
{
    std::string narrow;
    for (; *text != 0; ++text) {
        narrow += static_cast<char>(*text);
    }
    return narrow;
}

void DescribeMachine()
{
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    // GetVersionEx tells a program without a manifest for Windows 10 of an older Windows.
    using Query = NTSTATUS(WINAPI*)(OSVERSIONINFOW*);
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    query(&version);
    SYSTEM_INFO system{};
    ::GetNativeSystemInfo(&system);
    std::array<char, 40> now{};
    const std::time_t time = std::time(nullptr);
    std::strftime(now.data(), now.size(), "%Y-%m-%d %H:%M:%S", std::localtime(&time));
    Say("Windows " + std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + "." +
        std::to_string(version.dwBuildNumber) + ", processor type " +
        std::to_string(system.wProcessorArchitecture) + ", " + std::to_string(system.dwNumberOfProcessors) +
        " processors, " + (IsElevated() ? "elevated" : "not elevated") + ", " + now.data());
}

/// The output's lines that begin with one of `beginnings`.
std::string LinesThatBegin(const std::string& output, std::initializer_list<const char*> beginnings)
{
    std::string lines;
    std::istringstream in(output);
    for (std::string line; std::getline(in, line);) {
        for (const char* const beginning : beginnings) {
            if (line.starts_with(beginning)) {
                lines += "    " + line + "\n";
            }
        }
    }
    return lines;
}

bool RunTests(const TestProgram& tests)
{
    const std::string name = Narrow(tests.name);
    const ChildProcess program(support::ProgramFolder() / (tests.name + std::wstring(L".exe")),
                               L"--gtest_brief=1 --gtest_filter=" + std::wstring(tests.filter));
    const auto code = program.WaitForExit(ProgramLimit);
    const std::string output = program.Output();
    if (code == 0u) {
        const bool driver = output.find("needs the driver") != std::string::npos;
        Say(name + (driver ? " left itself out: it needs the driver of the simulated USB instrument" : " passed"));
        std::printf("%s", LinesThatBegin(output, {"[==========]", "[  SKIPPED ] "}).c_str());
        return true;
    }
    Say(name + (code ? " FAILED with code " + std::to_string(*code) : " FAILED: it did not end") + "\n" + output);
    return false;
}

bool RunSoak(int seconds)
{
    std::string figures;
    const Found found = RunShortSoak(seconds, figures);
    Say(figures);
    if (!found.words.empty()) {
        Say((found.outcome == Found::Outcome::Skipped ? "skipped: " : "FAILED: ") + found.words);
    }
    return found.outcome != Found::Outcome::Differs;
}

bool RunBench()
{
    const ChildProcess bench(support::ProgramFolder() / L"bench.exe", L"--quick --only wire,dispatch,trace");
    const auto code = bench.WaitForExit(ProgramLimit);
    Say(bench.Output());
    return code == 0u;
}

} // namespace

int RunKit(int soakSeconds, const std::string& only)
{
    std::string failed;
    const auto step = [&](const char* title, const char* name, bool worked) {
        failed += worked ? "" : std::string(" ") + name;
        Say(std::string("\n== ") + title);
    };
    DescribeMachine();
    step("What the code assumes of Windows", "", true);
    const bool assumptions = CheckAll() == 0;
    step("Tests", "assumptions", assumptions);
    bool tests = true;
    // The driver of a simulated instrument is not installed on a user's PC.
    ::SetEnvironmentVariableW(L"MORVANE_WITHOUT_DRIVER", L"1");
    for (const TestProgram& program : TestPrograms) {
        if (only.empty() || only.find(Narrow(program.name)) != std::string::npos) {
            tests = RunTests(program) && tests;
        }
    }
    step("Soak: ports, transport and a simulated instrument in one process", "tests", tests);
    const bool soak = RunSoak(soakSeconds);
    step("Bench", "soak", soak);
    const bool bench = RunBench();
    step("Left out", "bench", bench);
    Say("Tests of an installed router, its registration and its settings: they would change them.\n"
        "Tests with a simulated USB instrument: its driver would have to be installed.\n"
        "Tests with a real pointer and keys, and all that needs a person: windows-check.md.");
    if (!IsElevated()) {
        Say("Whatever needs an administrator: this user is none, or is not elevated.");
    }
    Say(failed.empty() ? "\nEverything passed." : "\nDiffers or failed:" + failed);
    return failed.empty() ? 0 : 1;
}

} // namespace windowscheck
