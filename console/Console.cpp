#include "console/Console.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <stdexcept>

namespace console {

namespace {

/// Guards standard output.
std::mutex& OutputLock()
{
    static std::mutex lock;
    return lock;
}

/// How long the console's end is held up for the program to end in good order.
constexpr DWORD GoodOrder = 4000;

std::atomic<HANDLE> stopEvent{nullptr}; // borrowed from the StopSignal, if any

BOOL WINAPI OnControl(DWORD kind)
{
    const HANDLE event = stopEvent.load();
    // Asked a second time, the program ends at once, as it would without this handler.
    if (event == nullptr || ::WaitForSingleObject(event, 0) == WAIT_OBJECT_0) {
        return FALSE;
    }
    ::SetEvent(event);
    if (kind == CTRL_CLOSE_EVENT || kind == CTRL_LOGOFF_EVENT || kind == CTRL_SHUTDOWN_EVENT) {
        // Windows ends the process as soon as this returns. The program's own end comes first, if it is quick.
        ::Sleep(GoodOrder);
    }
    return TRUE;
}

/// Manual reset; without a name when that is empty. Throws std::runtime_error.
win32::KernelHandle MakeEvent(const std::string& name)
{
    win32::KernelHandle event(::CreateEventW(nullptr, TRUE, FALSE, name.empty() ? nullptr : Wide(name).c_str()));
    if (!event) {
        const DWORD error = ::GetLastError();
        throw std::runtime_error("the event '" + name + "' can't be made (error " + std::to_string(error) + ")");
    }
    return event;
}

} // namespace

std::string Utf8(std::wstring_view text)
{
    const int length = static_cast<int>(text.size());
    const int needed = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(needed), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), needed, nullptr, nullptr);
    return result;
}

std::wstring Wide(std::string_view utf8)
{
    const int length = static_cast<int>(utf8.size());
    const int needed = ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(needed), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, result.data(), needed);
    return result;
}

std::vector<std::string> Arguments(int count, wchar_t** arguments)
{
    std::vector<std::string> result;
    for (int i = 1; i < count; ++i) {
        result.push_back(Utf8(arguments[i]));
    }
    return result;
}

void Say(std::string_view line)
{
    const std::lock_guard lock(OutputLock());
    std::fwrite(line.data(), 1, line.size(), stdout);
    if (line.empty() || line.back() != '\n') {
        std::fputc('\n', stdout);
    }
    // Others follow the lines as they come, also through a file or a pipe.
    std::fflush(stdout);
}

int Fail(std::string_view program, std::string_view what, int exitCode)
{
    const std::string line = std::string(program) + ": " + std::string(what) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
    return exitCode;
}

ReadySignal::ReadySignal(const std::string& eventName)
{
    if (!eventName.empty()) {
        m_event = MakeEvent(eventName);
    }
}

std::chrono::microseconds Now()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}

StopSignal::StopSignal(const std::string& eventName) : m_event(MakeEvent(eventName))
{
    stopEvent.store(m_event.Get());
    ::SetConsoleCtrlHandler(OnControl, TRUE);
}

StopSignal::~StopSignal()
{
    ::SetConsoleCtrlHandler(OnControl, FALSE);
    stopEvent.store(nullptr);
}

} // namespace console
