#include "diag/TraceQueue.h"

#include "diag/TimeStamp.h"
#include "trace/Trace.h"

#include <array>
#include <cstdio>
#include <utility>

void TraceQueue::Push(std::uint32_t mask, std::string text, Stamp stamp)
{
    CDebugEntry entry{std::move(text), WantsWindow(mask), WantsFile(mask)};
    if (stamp == Stamp::Now) {
        // Room is made before the lock is taken; the digits go in under it.
        entry.Text.insert(0, TimeStampLength, ' ');
    }
    const win32::ExclusiveScope lock(m_lock);
    if (m_entries.size() > Limit) {
        // The writer tests the length after each entry it takes, so every entry after the limit is certain
        // to be discarded. Counting it is enough, and a writer that a disk holds up costs no memory without end.
        ++m_uncounted;
        return;
    }
    Append(std::move(entry), stamp);
}

void TraceQueue::Append(CDebugEntry&& entry, Stamp stamp)
{
    if (stamp == Stamp::Now) {
        SYSTEMTIME now;
        ::GetLocalTime(&now);
        WriteTimeStamp(entry.Text.data(), now);
    }
    const bool first = m_entries.empty();
    m_entries.push_back(std::move(entry));
    if (first) {
        m_data.Set();
    }
}

bool TraceQueue::Pop(CDebugEntry& entry)
{
    const win32::ExclusiveScope lock(m_lock);
    if (m_entries.empty()) {
        return false;
    }
    entry = std::move(m_entries.front());
    m_entries.pop_front();
    if (m_entries.empty()) {
        m_data.Reset();
    }
    return true;
}

bool TraceQueue::DiscardOverflow(bool report)
{
    std::deque<CDebugEntry> discarded; // freed outside the lock
    const win32::ExclusiveScope lock(m_lock);
    if (m_entries.size() < Limit) {
        return false;
    }
    discarded.swap(m_entries);
    const std::size_t count = discarded.size() + std::exchange(m_uncounted, 0);
    m_data.Reset();
    if (report) {
        std::array<char, 80> text{};
        std::snprintf(text.data(), text.size(), "Buffer overflow, removing %d entries", static_cast<int>(count));
        Append(CDebugEntry{std::string(TimeStampLength, ' ') + text.data(), true, true}, Stamp::Now);
    }
    return true;
}

std::size_t TraceQueue::Size() const
{
    const win32::ExclusiveScope lock(m_lock);
    return m_entries.size() + m_uncounted;
}
