// Writes the instrument's packets to the client, one write at a time.
#pragma once

#include "ports/packet/CSerialPortCommand.h"
#include "win32/OverlappedOperation.h"

#include <memory>

/// Used by the port's worker thread alone. The pipe given to Start must stay open until Finish or Cancel.
class ReplyWriter
{
public:
    /// A queued packet that finds the last write unfinished costs the port this long, for a client that has
    /// stopped reading.
    static constexpr DWORD PermissionTimeMs = 100;

    /// Writes `packet`, which is kept until the next Start. Only while MayWrite(). A refusal is reported like a
    /// failed write. A null or empty packet is dropped. Returns the packet that is being written, null when there
    /// is none.
    const CSerialPortCommand* Start(HANDLE pipe, std::unique_ptr<CSerialPortCommand> packet);

    /// Takes the result of the write; false when it failed, with the reason in GetLastError().
    bool Finish(HANDLE pipe);

    void Cancel() noexcept { m_write.Cancel(); }

    /// For a new client. A write that began before its connect was noticed may still be pending: the next one
    /// waits for its end, or it would free the bytes that Windows reads.
    void Permit() noexcept { m_mayWrite = !m_write.IsPending(); }

    /// Whether the last write has completed.
    bool MayWrite() const noexcept { return m_mayWrite; }

    /// How long the pending write may still take before the client counts as stalled, in milliseconds; 0 when none
    /// is pending. A client that reads takes far less than PermissionTimeMs to make space, so until then a queued
    /// packet is not looked at.
    DWORD TimeLeftMs() const noexcept;

    HANDLE WriteEvent() const noexcept { return m_write.EventHandle(); }
    win32::Expectation ExpectWrite() const noexcept { return m_write.Expected(); }

private:
    std::unique_ptr<CSerialPortCommand> m_packet; // its bytes may still be read by the write
    bool m_mayWrite = false;
    ULONGLONG m_startedAt = 0; // GetTickCount64 of the last write
    win32::OverlappedOperation m_write;
};
