// An unnamed event object.
#pragma once

#include "win32/Handle.h"

namespace win32 {

/// Any thread may call any member. An event that Windows refused to create is never signalled.
class Event
{
public:
    enum class Kind { ManualReset, AutoReset };

    explicit Event(Kind kind, bool signalled = false) noexcept
        : m_handle(::CreateEventW(nullptr, kind == Kind::ManualReset, signalled, nullptr))
    {
    }

    void Set() const noexcept { ::SetEvent(m_handle.Get()); }
    void Reset() const noexcept { ::ResetEvent(m_handle.Get()); }

    /// Waits at most `milliseconds`; true when signalled. An auto-reset event is consumed by that.
    bool Wait(DWORD milliseconds) const noexcept
    {
        return ::WaitForSingleObject(m_handle.Get(), milliseconds) == WAIT_OBJECT_0;
    }

    /// Tests without waiting.
    bool IsSet() const noexcept { return Wait(0); }

    bool Exists() const noexcept { return static_cast<bool>(m_handle); }
    HANDLE Get() const noexcept { return m_handle.Get(); }

private:
    KernelHandle m_handle;
};

} // namespace win32
