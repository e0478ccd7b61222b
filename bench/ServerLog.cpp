#include "bench/ServerLog.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/UniqueName.h"
#include "win32/Handle.h"

#include <iomanip>
#include <sstream>
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

/// A thread's line in the list of calls.
std::string LineOf(const char* program, DWORD thread, const Requests& requests)
{
    std::ostringstream line;
    line << "  " << std::setw(10) << std::left << program << " thread " << std::hex << thread << std::dec
         << std::fixed << std::setprecision(2) << ": " << Sum(requests) << " =";
    for (const auto& [name, count] : requests) {
        if (count >= 0.01) {
            line << ' ' << name << ' ' << count;
        }
    }
    return line.str() + '\n';
}

} // namespace

ServerLog::ServerLog(std::filesystem::path log, const std::filesystem::path& calls)
    : m_path(std::move(log)), m_calls(calls)
{
    // The server logs requests from the moment that any program of this session wants it to.
    ::SetEnvironmentVariableW(L"WINEDEBUG", L"+server");
    const support::ChildProcess any(support::ProgramFolder() / L"bench.exe", L"--help");
    ::SetEnvironmentVariableW(L"WINEDEBUG", L"-all");
    if (!any.WaitForExit()) {
        throw std::runtime_error("the Wine server can't be asked to log");
    }
}

Requests ServerLog::Count(const std::string& title, const std::vector<Program>& programs, double count,
                          const std::function<void()>& action)
{
    std::map<DWORD, Requests> counted = During(action);
    Requests together;
    m_calls << title << '\n';
    for (const Program& program : programs) {
        for (const DWORD thread : program.threads) {
            for (auto& [name, number] : counted[thread]) {
                number /= count;
                together[name] += number;
            }
            if (Sum(counted[thread]) >= 0.05) {
                m_calls << LineOf(program.name, thread, counted[thread]);
            }
        }
    }
    m_calls << "  together " << Sum(together) << "\n\n";
    return together;
}

std::map<DWORD, Requests> ServerLog::During(const std::function<void()>& action) const
{
    const std::string mark = support::UniqueName(std::string_view("bench-mark"));
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

double Sum(const Requests& requests)
{
    double sum = 0;
    for (const auto& [name, count] : requests) {
        sum += name != Slept ? count : 0;
    }
    return sum;
}

} // namespace bench
