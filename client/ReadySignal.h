// morvane_wait_handle's event.
#pragma once

#include "win32/Event.h"

#include <utility>

namespace clientlib {

/// Without a lock of its own. Stays out of the kernel until a client has asked for it, and while nothing changes.
class ReadySignal
{
public:
    /// Null when there was no memory for the event.
    HANDLE Want() noexcept
    {
        m_isWanted = m_event.Exists();
        return m_event.Get();
    }
    bool IsWanted() const noexcept { return m_isWanted; }
    void Update(bool isReady) noexcept
    {
        isReady = isReady && m_isWanted;
        if (std::exchange(m_isReady, isReady) != isReady) {
            isReady ? m_event.Set() : m_event.Reset();
        }
    }

private:
    const win32::Event m_event{win32::Event::Kind::ManualReset};
    bool m_isWanted = false;
    bool m_isReady = false; // the event is set
};

} // namespace clientlib
