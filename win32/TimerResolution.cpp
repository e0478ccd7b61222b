#include "win32/TimerResolution.h"

#include <timeapi.h>
#include <bit>

namespace win32 {

namespace {

using TimerCall = MMRESULT(WINAPI*)(UINT);

MMRESULT WINAPI NotThere(UINT /*milliseconds*/)
{
    return TIMERR_NOCANDO;
}

struct TimerCalls
{
    TimerCall begin = &NotThere;
    TimerCall end = &NotThere;
};

TimerCall AddressOf(HMODULE library, const char* name) noexcept
{
    const FARPROC address = ::GetProcAddress(library, name);
    return address != nullptr ? std::bit_cast<TimerCall>(address) : &NotThere;
}

/// Loaded by hand and from the system's folder only. winmm.dll is none of the libraries that Windows always takes
/// from there: a program that imports it loads a file of that name from its own folder ("Dynamic-link library
/// search order"). Never freed, as an imported library would not be.
TimerCalls LoadTimerCalls() noexcept
{
    const HMODULE library = ::LoadLibraryExW(L"winmm.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (library == nullptr) {
        return {};
    }
    return {AddressOf(library, "timeBeginPeriod"), AddressOf(library, "timeEndPeriod")};
}

const TimerCalls& Calls() noexcept
{
    static const TimerCalls calls = LoadTimerCalls();
    return calls;
}

// From Windows 11 on the resolution of a process without visible windows is ignored ("timeBeginPeriod function")
// unless the process clears this throttling ("SetProcessInformation function"). Older ones don't know it and fail:
// there the resolution counts anyway.
void KeepResolutionWhileInvisible() noexcept
{
    PROCESS_POWER_THROTTLING_STATE state{};
    state.Version = PROCESS_POWER_THROTTLING_CURRENT_VERSION;
    state.ControlMask = PROCESS_POWER_THROTTLING_IGNORE_TIMER_RESOLUTION;
    state.StateMask = 0;
    ::SetProcessInformation(::GetCurrentProcess(), ProcessPowerThrottling, &state, sizeof state);
}

} // namespace

void TimerResolution::Raise() noexcept
{
    m_lastRaise = ::GetTickCount64();
    if (!m_raised) {
        KeepResolutionWhileInvisible();
        m_raised = Calls().begin(1) == TIMERR_NOERROR;
    }
}

void TimerResolution::Restore() noexcept
{
    if (m_raised) {
        Calls().end(1);
        m_raised = false;
    }
}

} // namespace win32
