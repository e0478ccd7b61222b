// The program's entry.

#include "host/CMorvanePortRouterModule.h"
#include "win32/Windows.h"

namespace {

constexpr wchar_t InstanceMutex[] = L"Local\\MorvanePortRouterMutex";
constexpr int SecondInstance = 1;

/// Whether this is the only router of the session. The mutex is never closed: it stands as long as the process.
bool IsFirstInstance() noexcept
{
    ::SetLastError(ERROR_SUCCESS);
    const HANDLE mutex = ::CreateMutexW(nullptr, FALSE, InstanceMutex);
    return mutex != nullptr && ::GetLastError() == ERROR_SUCCESS;
}

} // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE /*previous*/, PWSTR commandLine, int /*show*/)
{
    ::SetPriorityClass(::GetCurrentProcess(), ABOVE_NORMAL_PRIORITY_CLASS);
    // Before the command line: while a router runs, its registration is not touched either.
    if (!IsFirstInstance()) {
        return SecondInstance;
    }
    // On the stack, so that the end of a router that served, which is exit(), leaves it standing: threads of COM
    // and a tracer that was given up may still be about.
    CMorvanePortRouterModule module(instance);
    return module.WinMain(commandLine);
}
