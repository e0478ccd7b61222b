#include "client/ComThread.h"

#include <objbase.h>
#include <utility>

namespace clientlib {

bool ComThread::Post(Job job)
{
    const win32::SectionScope scope(m_lock);
    if (!m_thread.IsHeld() && !m_thread.Start([this] { Work(); })) {
        return false;
    }
    m_jobs.push_back(std::move(job));
    m_posted.WakeOne();
    return true;
}

ComThread::Job ComThread::Next()
{
    const win32::SectionScope scope(m_lock);
    while (m_jobs.empty()) {
        m_posted.Wait(m_lock, INFINITE);
    }
    Job job = std::move(m_jobs.front());
    m_jobs.pop_front();
    return job;
}

void ComThread::Work()
{
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    for (;;) {
        Next()();
    }
}

} // namespace clientlib
