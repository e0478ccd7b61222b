#include "host/BoundedStep.h"

#include "trace/Trace.h"
#include "win32/Thread.h"

bool EndsWithin(DWORD limitMs, const std::function<void()>& step) noexcept
{
    try {
        win32::Thread thread;
        if (thread.Start(step)) {
            return thread.JoinFor(limitMs);
        }
        Trace(trace::RouterChannel, trace::General, "EndsWithin() no thread, error %lu", ::GetLastError());
        step();
    } catch (...) {
        // As on a thread of its own: what the step threw ends with it.
    }
    return true;
}
