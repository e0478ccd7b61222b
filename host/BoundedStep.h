// A step of the router's end that may take only so long.
#pragma once

#include "trace/Trace.h"
#include "win32/Thread.h"

#include <functional>

/// Runs `step` on a thread of its own and waits for it at most `limitMs`. False when it has not returned by then:
/// it goes on by itself until the process ends, so whatever it uses must last as long. Without a thread it runs on
/// the caller's, without limit. What it throws is lost.
inline bool EndsWithin(DWORD limitMs, const std::function<void()>& step) noexcept
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
