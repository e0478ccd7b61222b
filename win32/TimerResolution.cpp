#include "win32/TimerResolution.h"

#include "win32/Windows.h"

#include <timeapi.h>

namespace win32 {

namespace {

struct TimerCalls
{
    decltype(&::timeBeginPeriod) begin = nullptr;
    decltype(&::timeEndPeriod) end = nullptr;
};

template <class Call>
Call AddressOf(HMODULE library, const char* name) noexcept
{
    return reinterpret_cast<Call>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
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
    return {AddressOf<decltype(TimerCalls::begin)>(library, "timeBeginPeriod"),
            AddressOf<decltype(TimerCalls::end)>(library, "timeEndPeriod")};
}

const TimerCalls& Calls() noexcept
{
    static const TimerCalls calls = LoadTimerCalls();
    return calls;
}

} // namespace

void TimerResolution::Raise() noexcept
{
    const TimerCalls& calls = Calls();
    if (!m_raised && calls.begin != nullptr && calls.end != nullptr) {
        m_raised = calls.begin(1) == TIMERR_NOERROR;
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
