// What the console programs share: their arguments, their lines, and the signal to end.
#pragma once

#include "win32/Event.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace console {

/// Exit code of a wrong command line, for all tools.
inline constexpr int UsageError = 2;

/// The arguments after the program's name, in UTF-8.
std::vector<std::string> Arguments(int count, wchar_t** arguments);

std::string Utf8(std::wstring_view text);
std::wstring Wide(std::string_view utf8);

/// A line (or several, with their ends) to standard output; whole lines whichever threads write at once.
void Say(std::string_view line);

/// "PROGRAM: what" to standard error, and `exitCode` back.
int Fail(std::string_view program, std::string_view what, int exitCode);

/// Microseconds from some moment before the first call; the same clock for all threads.
std::chrono::microseconds Now();

/// A named event that other processes wait for. It exists, unset, from the start: a process that opens it early
/// can wait for it.
class ReadySignal
{
public:
    /// Nothing without a name. Throws std::runtime_error when the event can't be made.
    explicit ReadySignal(const std::string& eventName);

    void Set() const noexcept
    {
        if (m_event) {
            ::SetEvent(m_event.Get());
        }
    }

private:
    win32::KernelHandle m_event; // manual reset
};

/// Becomes signalled on Ctrl+C, Ctrl+Break and when the console closes; on a named event too, when it is given
/// one. At most one at a time.
class StopSignal
{
public:
    /// Throws std::runtime_error when the event can't be made.
    explicit StopSignal(const std::string& eventName = {});
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    HANDLE Get() const noexcept { return m_event.Get(); }
    void Set() const noexcept { ::SetEvent(m_event.Get()); }
    bool IsSet() const noexcept { return Wait(0); }
    bool Wait(DWORD milliseconds) const noexcept
    {
        return ::WaitForSingleObject(m_event.Get(), milliseconds) == WAIT_OBJECT_0;
    }

private:
    win32::KernelHandle m_event; // manual reset
};

} // namespace console
