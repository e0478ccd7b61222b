#include "usb/CallLimits.h"

#include <algorithm>
#include <array>

namespace usb {

namespace {

// Of the time for stopping, what stays for requests that were cancelled in it.
constexpr ULONGLONG CancelReserveMs = 200;

bool Wait(HANDLE event, DWORD milliseconds) noexcept
{
    return ::WaitForSingleObject(event, milliseconds) == WAIT_OBJECT_0;
}

} // namespace

CallLimits& CallLimits::WithoutStop() noexcept
{
    static CallLimits limits;
    return limits;
}

bool CallLimits::IsStopping() noexcept
{
    if (m_stopEnd.load() != 0) {
        return true;
    }
    if (m_stop == nullptr || !Wait(m_stop, 0)) {
        return false;
    }
    ULONGLONG none = 0;
    m_stopEnd.compare_exchange_strong(none, ::GetTickCount64() + StopMs);
    return true;
}

DWORD CallLimits::LeftForStop(ULONGLONG reserved) const noexcept
{
    const ULONGLONG now = ::GetTickCount64() + reserved;
    const ULONGLONG end = m_stopEnd.load();
    return end > now ? static_cast<DWORD>(std::min<ULONGLONG>(end - now, StopMs)) : 0;
}

bool CallLimits::AwaitAnswer(HANDLE completed) noexcept
{
    if (!IsStopping()) {
        const std::array<HANDLE, 2> handles{completed, m_stop};
        const DWORD count = m_stop != nullptr ? 2 : 1;
        const DWORD result = ::WaitForMultipleObjects(count, handles.data(), FALSE, m_answerMs);
        if (result == WAIT_OBJECT_0 || !IsStopping()) {
            return result == WAIT_OBJECT_0;
        }
    }
    return Wait(completed, LeftForStop(CancelReserveMs));
}

bool CallLimits::AwaitCancelled(HANDLE completed) noexcept
{
    return Wait(completed, CancelTime());
}

DWORD CallLimits::CancelTime() noexcept
{
    return IsStopping() ? LeftForStop(0) : m_cancelMs;
}

} // namespace usb
