#include "bench/ServerLog.h"

#include "tests/support/ChildProcess.h"
#include "win32/Handle.h"

#include <tlhelp32.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace bench {

namespace {

/// The thread and the name of a request, or Slept ("0024: select( ..."); an answer ("0024: select() = 0 ...") is
/// none.
bool ParseRequest(const std::string& line, DWORD& thread, std::string& name)
{
    if (line.size() < 6) {
        return false;
    }
    const std::size_t colon = line.find(": ");
    const std::size_t open = line.find('(');
    if (line.compare(4, 21, ": select() = PENDING ") == 0) {
        thread = std::strtoul(line.c_str(), nullptr, 16);
        name = Slept;
        return true;
    }
    if (colon != 4 || open == std::string::npos || open < colon + 2 || line.compare(open, 4, "() =") == 0) {
        return false;
    }
    name = line.substr(colon + 2, open - colon - 2);
    if (name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789") != std::string::npos) {
        return false;
    }
    thread = std::strtoul(line.c_str(), nullptr, 16);
    return true;
}

/// From the stat file of that process: user and system time are fields 14 and 15, in hundredths of a second.
/// Windows' own call tells nothing of another process under Wine.
double ProcessorSecondsOf(const std::string& unixProcess)
{
    std::ifstream stat("Z:\\proc\\" + unixProcess + "\\stat", std::ios::binary);
    std::string text;
    std::getline(stat, text);
    constexpr int FieldsBehindTheName = 11;
    std::istringstream fields(text.substr(std::min(text.rfind(')') + 1, text.size())));
    std::string skipped;
    for (int i = 0; i < FieldsBehindTheName; ++i) {
        fields >> skipped;
    }
    double user = 0;
    double system = 0;
    if (!(fields >> user >> system)) {
        throw std::runtime_error("the processor time of a process can't be read");
    }
    return (user + system) / 100;
}

} // namespace

ServerLog::ServerLog(std::filesystem::path path) : m_path(std::move(path))
{
    // The server logs requests from the moment that any program of this session wants it to.
    ::SetEnvironmentVariableW(L"WINEDEBUG", L"+server");
    const support::ChildProcess nobody(support::ProgramFolder() / L"bench.exe", L"--role nobody");
    ::SetEnvironmentVariableW(L"WINEDEBUG", L"-all");
    if (!nobody.WaitForExit()) {
        throw std::runtime_error("the Wine server can't be asked to log");
    }
}

void ServerLog::Mark(const std::string& name) const
{
    // There is no such event, but the question is in the log.
    const win32::KernelHandle none(::OpenEventA(SYNCHRONIZE, FALSE, ("bench-mark-" + name).c_str()));
}

std::map<DWORD, Requests> ServerLog::Counted(const std::string& name) const
{
    const std::string begin = "bench-mark-begin-" + name + "\"";
    const std::string end = "bench-mark-end-" + name + "\"";
    std::map<DWORD, Requests> counted;
    std::ifstream log(m_path, std::ios::binary);
    bool counting = false;
    for (std::string line; std::getline(log, line);) {
        if (line.find(end) != std::string::npos) {
            return counted;
        }
        DWORD thread = 0;
        std::string request;
        if (counting && ParseRequest(line, thread, request)) {
            ++counted[thread][request];
        }
        counting = counting || line.find(begin) != std::string::npos;
    }
    throw std::runtime_error("the Wine server's log does not show " + name);
}

double ServerLog::ProcessorSeconds(DWORD firstThread) const
{
    std::array<char, 60> start{};
    std::snprintf(start.data(), start.size(), "%04lx: init_first_thread( unix_pid=", firstThread);
    const std::string mark = start.data();
    std::ifstream log(m_path, std::ios::binary);
    for (std::string line; std::getline(log, line);) {
        if (line.compare(0, mark.size(), mark) == 0) {
            return ProcessorSecondsOf(std::to_string(std::strtoul(line.c_str() + mark.size(), nullptr, 10)));
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
