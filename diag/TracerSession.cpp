// What the tracer's thread does when its debug window hears that the Windows session ends.
#include "diag/CDebugThread.h"

namespace {

/// Longer than the main thread takes to end the router. Windows counts a program that answers later as hung.
constexpr DWORD SessionEndLimitMs = 5000;

DWORD RemainingTime(ULONGLONG since, DWORD limitMs) noexcept
{
    const ULONGLONG passed = ::GetTickCount64() - since;
    return passed < limitMs ? limitMs - static_cast<DWORD>(passed) : 0;
}

} // namespace

/// Windows may end the process as soon as the window procedure has returned ("WM_ENDSESSION message"), so the
/// router has to end before that. The main thread ends it, and this one writes the log meanwhile; a blocking
/// SendMessage would stop the log, and the main thread's wait for the log would time out.
void CDebugThread::OnSessionEnd() noexcept
{
    if (m_sessionEnds) {
        return;
    }
    m_sessionEnds = true;
    m_routerEnded = ::SendMessageCallbackW(m_sessionWindow, WM_ENDSESSION, TRUE, 0, &OnRouterEnded,
                                           reinterpret_cast<ULONG_PTR>(this)) == FALSE;
    const ULONGLONG begin = ::GetTickCount64();
    for (DWORD left = SessionEndLimitMs; m_running && !m_routerEnded && left != 0;
         left = RemainingTime(begin, SessionEndLimitMs))
    {
        ServeOnce(left);
    }
    m_running = false;
    EndLog();
    for (DWORD left = RemainingTime(begin, SessionEndLimitMs); !m_routerEnded && left != 0;
         left = RemainingTime(begin, SessionEndLimitMs))
    {
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE, left, QS_SENDMESSAGE);
        MSG ignored;
        ::PeekMessageW(&ignored, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE); // calls OnRouterEnded
    }
}

/// The dialog's window procedure has returned, or the dialog was destroyed before it got the message.
void CALLBACK CDebugThread::OnRouterEnded(HWND /*dialog*/, UINT /*message*/, ULONG_PTR tracer,
                                          LRESULT /*result*/) noexcept
{
    reinterpret_cast<CDebugThread*>(tracer)->m_routerEnded = true;
}
