// The library's own COM apartment.
#pragma once

#include "win32/CriticalSection.h"
#include "win32/Thread.h"

#include <deque>
#include <functional>

namespace clientlib {

/// One thread, in the multithreaded apartment, which runs jobs in order. It starts with the first job and never
/// ends: callers need no COM of their own and may have any. Any thread may post.
class ComThread
{
public:
    using Job = std::function<void()>;

    /// False when the thread could not be started. A job must not throw.
    bool Post(Job job);

private:
    void Work();
    Job Next();

    win32::CriticalSection m_lock;
    win32::ConditionVariable m_posted;
    std::deque<Job> m_jobs GUARDED_BY(m_lock);
    win32::Thread m_thread GUARDED_BY(m_lock);
};

} // namespace clientlib
