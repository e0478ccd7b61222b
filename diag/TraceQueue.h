// The lines on their way from the threads that trace to the one that writes.
#pragma once

#include "win32/CriticalSection.h"
#include "win32/Event.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

/// One trace line, 8-bit text without a line end.
struct CDebugEntry
{
    std::string Text;
    bool ToWindow = false;
    bool ToFile = false;
};

/// Any thread may push; one thread pops and discards. The lock is held only to move entries in and out.
class TraceQueue
{
public:
    /// A queue of this length is given up as a whole by DiscardOverflow.
    static constexpr std::size_t Limit = 10000;

    enum class Stamp { None, Now };

    /// Appends `text`; `mask` tells where it goes. The stamps of two entries never contradict their order.
    void Push(std::uint32_t mask, std::string text, Stamp stamp);

    /// Takes the oldest entry; false when there is none.
    bool Pop(CDebugEntry& entry);

    /// A queue at its limit: discards every entry, appends a line that says how many (if `report`), returns true.
    bool DiscardOverflow(bool report);

    std::size_t Size() const;

    /// Manual-reset, signalled exactly while entries are queued.
    HANDLE DataEvent() const noexcept { return m_data.Get(); }

private:
    void Append(CDebugEntry&& entry, Stamp stamp) REQUIRES(m_lock);

    mutable win32::SharedLock m_lock; // held over changes of the event, too
    std::deque<CDebugEntry> m_entries GUARDED_BY(m_lock);
    std::size_t m_uncounted GUARDED_BY(m_lock) = 0;
    win32::Event m_data{win32::Event::Kind::ManualReset};
};
