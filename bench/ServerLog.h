// What the Wine server was asked for, counted: on Windows each request is a kernel call.
#pragma once

#include "bench/Table.h"
#include "win32/Windows.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace bench {

/// Request name to count. A wait that found nothing signalled and put its thread to sleep counts as Slept besides:
/// so many times the thread was woken.
using Requests = std::map<std::string, double>;
inline constexpr const char* Slept = "(slept)";

/// Without what is no request.
double Sum(const Requests& requests);

/// A program, or a part of it, whose threads are counted.
struct Program
{
    const char* name;
    std::vector<DWORD> threads;
};

/// One thread.
class ServerLog
{
public:
    /// Makes the server log every request from now on into `log`, which is where its errors go. `calls` gets the
    /// counted requests, thread by thread.
    ServerLog(std::filesystem::path log, const std::filesystem::path& calls);

    /// The requests of the threads of `programs` while `action` runs, for one of `count` (trips, seconds). Lists
    /// them under `title`. Throws std::runtime_error when the log does not show them.
    Requests Count(const std::string& title, const std::vector<Program>& programs, double count,
                   const std::function<void()>& action);

    /// Seconds of processor time that the process of that thread has taken, by the account of the machine below
    /// Wine. Throws std::runtime_error when the log does not show the thread's start.
    double ProcessorSeconds(DWORD firstThread) const;

private:
    std::map<DWORD, Requests> During(const std::function<void()>& action) const;

    const std::filesystem::path m_path;
    std::ofstream m_calls;
};

/// What AddTraceRows does not time.
void AddCountedTraceRow(Table& table, ServerLog& log);

} // namespace bench
