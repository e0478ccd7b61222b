// CrashAt: starts a program under a debugger of its own, lets a thread of it run one of its functions without an
// argument, and prints where the program crashed. For the test of the symbols.
//
//   CrashAt PROGRAM OFFSET    the function's place in the program's image, in hex digits; the crash's is printed
//   alike
#include <windows.h>

#include <cstdio>
#include <cwchar>

namespace {

constexpr DWORD EventPatienceMs = 60'000;

class Debuggee
{
public:
    bool Start(const wchar_t* program)
    {
        STARTUPINFOW start{};
        start.cb = sizeof start;
        wchar_t commandLine[MAX_PATH] = {};
        std::swprintf(commandLine, MAX_PATH, L"\"%ls\"", program);
        return ::CreateProcessW(program, commandLine, nullptr, nullptr, FALSE, DEBUG_ONLY_THIS_PROCESS, nullptr,
                                nullptr, &start, &m_process) != FALSE;
    }

    /// The crash's place in the image; 0 when the program ends without one.
    ULONG_PTR RunInto(ULONG_PTR function)
    {
        DEBUG_EVENT event{};
        while (::WaitForDebugEvent(&event, EventPatienceMs)) {
            const auto& exception = event.u.Exception.ExceptionRecord;
            DWORD answer = DBG_CONTINUE;
            if (event.dwDebugEventCode == CREATE_PROCESS_DEBUG_EVENT) {
                m_image = reinterpret_cast<ULONG_PTR>(event.u.CreateProcessInfo.lpBaseOfImage);
                ::CloseHandle(event.u.CreateProcessInfo.hFile);
            } else if (event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT) {
                return 0;
            } else if (event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT) {
                if (exception.ExceptionCode == EXCEPTION_ACCESS_VIOLATION) {
                    return reinterpret_cast<ULONG_PTR>(exception.ExceptionAddress) - m_image;
                }
                // The loader's own breakpoint: everything is in place.
                if (exception.ExceptionCode == EXCEPTION_BREAKPOINT && !m_started) {
                    m_started = true;
                    const HANDLE thread = ::CreateRemoteThread(
                        m_process.hProcess, nullptr, 0,
                        reinterpret_cast<LPTHREAD_START_ROUTINE>(m_image + function), nullptr, 0, nullptr);
                    ::CloseHandle(thread);
                } else {
                    answer = DBG_EXCEPTION_NOT_HANDLED;
                }
            }
            ::ContinueDebugEvent(event.dwProcessId, event.dwThreadId, answer);
        }
        return 0;
    }

    void End() const { ::TerminateProcess(m_process.hProcess, 1); }

private:
    PROCESS_INFORMATION m_process{};
    ULONG_PTR m_image = 0;
    bool m_started = false;
};

} // namespace

int wmain(int count, wchar_t** arguments)
{
    Debuggee debuggee;
    if (count != 3 || !debuggee.Start(arguments[1])) {
        std::fprintf(stderr, "usage: CrashAt PROGRAM OFFSET\n");
        return 2;
    }
    const ULONG_PTR crash = debuggee.RunInto(std::wcstoull(arguments[2], nullptr, 16));
    debuggee.End();
    std::printf("%llx\n", static_cast<unsigned long long>(crash));
    return crash != 0 ? 0 : 1;
}
