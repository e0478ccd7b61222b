// I/O controls that are waited for, and how long.
#pragma once

#include "usb/Transfer.h"
#include "win32/Windows.h"

#include <atomic>
#include <cstdint>
#include <span>

namespace usb {

/// One object for all threads that share a device. Any thread may call any member.
class CallLimits
{
public:
    /// Longer than the driver itself gives any control request; only a driver that has lost the request needs it.
    static constexpr DWORD AnswerMs = 12'000;
    /// A driver ends cancelled requests within microseconds.
    static constexpr DWORD CancelMs = 1'000;
    /// From the moment at which a call finds the stop event signalled, for all calls together.
    static constexpr DWORD StopMs = 1'000;

    /// `stop`: borrowed, manual reset; null: no stop cuts the calls short.
    explicit CallLimits(HANDLE stop = nullptr, DWORD answerMs = AnswerMs, DWORD cancelMs = CancelMs) noexcept
        : m_stop(stop), m_answerMs(answerMs), m_cancelMs(cancelMs)
    {
    }

    /// For devices without a stop.
    static CallLimits& WithoutStop() noexcept;

    /// Waits for the driver's answer. False: the request is to be cancelled.
    bool AwaitAnswer(HANDLE completed) noexcept;

    /// Waits for the end of a cancelled request. False: it is to be given up.
    bool AwaitCancelled(HANDLE completed) noexcept
    {
        return ::WaitForSingleObject(completed, CancelTime()) == WAIT_OBJECT_0;
    }

    /// The milliseconds that cancelled requests have from now on.
    DWORD CancelTime() noexcept { return IsStopping() ? LeftForStop(0) : m_cancelMs; }

private:
    bool IsStopping() noexcept;
    /// Of the time for stopping, but for its last `reserved` milliseconds.
    DWORD LeftForStop(ULONGLONG reserved) const noexcept;

    const HANDLE m_stop;
    const DWORD m_answerMs;
    const DWORD m_cancelMs;
    std::atomic<ULONGLONG> m_stopEnd{0}; // tick count at which the time for stopping is over; 0: not stopping yet
};

/// Sends `code` to a device that was opened for overlapped use, with `buffer` as input and output, and waits for
/// the driver's answer within `limits`. `returned`: the bytes it returned. False with GetLastError() on failure; a
/// device that is not open fails without a call. A request that is not answered in time is cancelled; one that the
/// driver keeps nevertheless goes to `kept`, and until it has completed the same code fails there with ERROR_BUSY.
/// Any thread, but one at a time for `kept`.
bool DeviceControl(HANDLE device, std::uint32_t code, std::span<std::uint8_t> buffer, DWORD& returned,
                   CallLimits& limits, AbandonedTransfers& kept) noexcept;

} // namespace usb
