// What ends a pending operation of a pipe.
#pragma once

#include "win32/Event.h"

#include <utility>

namespace clientlib {

/// Without a lock of its own. Stays out of the kernel while nothing is interrupted.
class Interruption
{
public:
    void Set() noexcept
    {
        if (!std::exchange(m_isSet, true)) {
            m_event.Set();
        }
    }
    void Reset() noexcept
    {
        if (std::exchange(m_isSet, false)) {
            m_event.Reset();
        }
    }
    bool Exists() const noexcept { return m_event.Exists(); }
    HANDLE Get() const noexcept { return m_event.Get(); }

private:
    const win32::Event m_event{win32::Event::Kind::ManualReset};
    bool m_isSet = false;
};

} // namespace clientlib
