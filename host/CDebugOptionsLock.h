// The scoped gate that keeps trace calls away while the device options change.
#pragma once

#include "win32/MirroredEvent.h"

/// Closes the gate (a manual-reset event) for its lifetime. It neither waits nor excludes another writer: trace
/// calls test the gate and drop their line while it is closed. Main thread.
class CDebugOptionsLock
{
public:
    /// `gate` is borrowed.
    explicit CDebugOptionsLock(win32::MirroredEvent& gate) noexcept : m_gate(gate) { m_gate.Reset(); }
    virtual ~CDebugOptionsLock() { m_gate.Set(); }
    CDebugOptionsLock(const CDebugOptionsLock&) = delete;
    CDebugOptionsLock& operator=(const CDebugOptionsLock&) = delete;

private:
    win32::MirroredEvent& m_gate;
};
