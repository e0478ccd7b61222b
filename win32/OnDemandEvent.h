// An auto-reset event that costs a kernel call only while its consumer waits for it.
#pragma once

#include "win32/Event.h"

#include <atomic>

namespace win32 {

/// A flag whose event is signalled only while its one consumer waits. Any thread may call Set; the rest is called
/// by the consumer. It arms the event and tests the flag before each wait, so no Set is missed. A wait may wake
/// spuriously; Take then returns false.
class OnDemandEvent
{
public:
    explicit OnDemandEvent(bool set) noexcept : m_event(Event::Kind::AutoReset, set), m_isSet(set) {}

    void Set() noexcept
    {
        m_isSet.store(true);
        if (m_isArmed.exchange(false)) {
            m_event.Set();
        }
    }

    /// Returns whether the flag is set. From now on Set signals the event, once.
    bool Arm() noexcept
    {
        m_isArmed.store(true);
        return m_isSet.load();
    }

    /// Returns whether the flag is set. From now on Set does not signal the event.
    bool Disarm() noexcept
    {
        m_isArmed.store(false);
        return m_isSet.load();
    }

    /// Clears the flag; false when it was not set.
    bool Take() noexcept { return m_isSet.exchange(false); }

    HANDLE Get() const noexcept { return m_event.Get(); }

private:
    Event m_event;
    std::atomic<bool> m_isSet;
    std::atomic<bool> m_isArmed{false};
};

} // namespace win32
