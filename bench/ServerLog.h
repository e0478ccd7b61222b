// What the Wine server was asked for, counted: on Windows each request is a kernel call.
#pragma once

#include "win32/Windows.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace bench {

/// Request name to count. A wait that found nothing signalled and put its thread to sleep counts as Slept besides:
/// so many times the thread was woken.
using Requests = std::map<std::string, std::uint64_t>;
inline constexpr const char* Slept = "(slept)";

/// Without what is no request.
std::uint64_t Sum(const Requests& requests);

/// One thread.
class ServerLog
{
public:
    /// Makes the server log every request from now on into `path`, which is where its errors go.
    explicit ServerLog(std::filesystem::path path);

    /// The requests of each thread while `action` runs. Throws std::runtime_error when the log does not show them.
    std::map<DWORD, Requests> During(const std::function<void()>& action) const;

    /// Seconds of processor time that the process of that thread has taken, by the account of the machine below
    /// Wine. Throws std::runtime_error when the log does not show the thread's start.
    double ProcessorSeconds(DWORD firstThread) const;

private:
    std::filesystem::path m_path;
};

/// Ids of all threads of that process.
std::vector<DWORD> ThreadsOf(DWORD processId);

} // namespace bench
