#include "bench/ServerLog.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/UniqueName.h"
#include "win32/Handle.h"

#include <tlhelp32.h>

#include <fstream>
#include <stdexcept>

namespace bench {

namespace {

/// Adds the request of a line ("0024: select( ...", or "0024: select() = PENDING ..." for a thread that went to
/// sleep) to its thread's. Any other answer ("0024: select() = 0 ...") is none.
void CountRequest(const std::string& line, std::map<DWORD, Requests>& counted)
{
    if (line.size() < 6 || line.compare(4, 2, ": ") != 0) {
        return;
    }
    const std::size_t open = line.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789", 6);
    const bool slept = line.compare(6, 19, "select() = PENDING ") == 0;
    if (slept || (open != line.npos && open != 6 && line[open] == '(' && line.compare(open, 4, "() =") != 0)) {
        const DWORD thread = std::strtoul(line.c_str(), nullptr, 16);
        ++counted[thread][slept ? Slept : line.substr(6, open - 6)];
    }
}

/// From the stat file of that process: user and system time are fields 14 and 15, in hundredths of a second.
/// Windows' own call tells nothing of another process under Wine.
double ProcessorSecondsOf(const std::string& unixProcess)
{
    std::ifstream stat("Z:\\proc\\" + unixProcess + "\\stat", std::ios::binary);
    std::string skipped;
    std::getline(stat, skipped, ')'); // the name, which may hold blanks
    for (int field = 3; field < 14; ++field) {
        stat >> skipped;
    }
    double user = 0;
    double system = 0;
    if (!(stat >> user >> system)) {
        throw std::runtime_error("the processor time of a process can't be read");
    }
    return (user + system) / 100;
}

/// Asks for an event that does not exist: the question is in the log.
void Mark(const std::string& name)
{
    const win32::KernelHandle none(::OpenEventA(SYNCHRONIZE, FALSE, name.c_str()));
}

} // namespace

ServerLog::ServerLog(std::filesystem::path path) : m_path(std::move(path))
{
    // The server logs requests from the moment that any program of this session wants it to.
    ::SetEnvironmentVariableW(L"WINEDEBUG", L"+server");
    const support::ChildProcess any(support::ProgramFolder() / L"bench.exe", L"--help");
    ::SetEnvironmentVariableW(L"WINEDEBUG", L"-all");
    if (!any.WaitForExit()) {
        throw std::runtime_error("the Wine server can't be asked to log");
    }
}

std::map<DWORD, Requests> ServerLog::During(const std::function<void()>& action) const
{
    const std::wstring unique = support::UniqueName(L"bench-mark");
    const std::string mark(unique.begin(), unique.end());
    Mark(mark + "-begin");
    action();
    Mark(mark + "-end");
    std::map<DWORD, Requests> counted;
    std::ifstream log(m_path, std::ios::binary);
    bool counting = false;
    for (std::string line; std::getline(log, line);) {
        if (line.find(mark + "-end\"") != std::string::npos) {
            return counted;
        }
        if (counting) {
            CountRequest(line, counted);
        }
        counting = counting || line.find(mark + "-begin\"") != std::string::npos;
    }
    throw std::runtime_error("the Wine server's log does not show what was counted");
}

double ServerLog::ProcessorSeconds(DWORD firstThread) const
{
    constexpr std::string_view Start = ": init_first_thread( unix_pid=";
    std::ifstream log(m_path, std::ios::binary);
    for (std::string line; std::getline(log, line);) {
        if (line.find(Start) == 4 && std::strtoul(line.c_str(), nullptr, 16) == firstThread) {
            return ProcessorSecondsOf(std::to_string(std::strtoul(line.c_str() + 4 + Start.size(), nullptr, 10)));
        }
    }
    throw std::runtime_error("the Wine server's log does not show the start of a process");
}

std::uint64_t Sum(const Requests& requests)
{
    std::uint64_t sum = 0;
    for (const auto& [name, count] : requests) {
        sum += name != Slept ? count : 0;
    }
    return sum;
}

std::vector<DWORD> ThreadsOf(DWORD processId)
{
    std::vector<DWORD> threads;
    const win32::FileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Thread32First(snapshot.Get(), &entry); more != FALSE;
         more = ::Thread32Next(snapshot.Get(), &entry))
    {
        if (entry.th32OwnerProcessID == processId) {
            threads.push_back(entry.th32ThreadID);
        }
    }
    return threads;
}

} // namespace bench
