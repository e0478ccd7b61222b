// The scoped gate that keeps trace calls away while the device options change.
#pragma once

#include "win32/Windows.h"

/// Closes the gate (a manual-reset event) for its lifetime. It neither waits nor excludes another writer: trace
/// calls test the gate and drop their line while it is closed. Main thread.
class CDebugOptionsLock
{
public:
    /// `gate` is borrowed; null does nothing.
    explicit CDebugOptionsLock(HANDLE gate) noexcept : m_gate(gate)
    {
        if (m_gate != nullptr) {
            ::ResetEvent(m_gate);
        }
    }
    virtual ~CDebugOptionsLock()
    {
        if (m_gate != nullptr) {
            ::SetEvent(m_gate);
        }
    }
    CDebugOptionsLock(const CDebugOptionsLock&) = delete;
    CDebugOptionsLock& operator=(const CDebugOptionsLock&) = delete;

private:
    HANDLE m_gate;
};
