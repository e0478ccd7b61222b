// The locked queue that carries packets between threads.
#pragma once

#include "ports/packet/CSerialPortCommand.h"
#include "win32/CriticalSection.h"
#include "win32/Event.h"

#include <atomic>
#include <deque>
#include <memory>
#include <optional>
#include <queue>

/// First in, first out. Any thread may call any member. Push signals the not-empty event after releasing the lock,
/// so it can be signalled although the queue is already empty: a consumer that finds it so calls
/// ResetEventIfEmpty. A queue whose one consumer waits for nothing else has AwaitNotEmpty in place of the event,
/// which would cost three kernel calls for each packet.
class CCommandQueue : private std::queue<CSerialPortCommand*, std::deque<CSerialPortCommand*>>
{
public:
    /// How its consumer waits.
    enum class Waiting { ByEvent, Alone };

    /// Throws std::bad_alloc.
    explicit CCommandQueue(Waiting waiting = Waiting::ByEvent);
    /// Clears the queue, which destroys no command: see Clear.
    virtual ~CCommandQueue() { Clear(); }

    /// Appends a command and returns the count. Null is ignored. Throws std::bad_alloc.
    std::int32_t Push(std::unique_ptr<CSerialPortCommand> command);

    /// The oldest command, or null.
    std::unique_ptr<CSerialPortCommand> Pop();

    /// Pop in two steps, for a consumer that is in a hurry with the command: the event may stay set over an empty
    /// queue until ResetEventIfEmpty, which resets it unless something has come in.
    std::unique_ptr<CSerialPortCommand> Take();
    void ResetEventIfEmpty();

    /// The count, read without the lock: good for limits and traces.
    std::int32_t GetCount() const noexcept { return m_Count.load(std::memory_order_relaxed); }

    /// Drops all commands without destroying them: the queue does not own their lifetime. By design; add no
    /// delete here. An owner that is through with its packets calls DestroyAll.
    void Clear();

    /// Takes all commands out at once and destroys them.
    void DestroyAll();

    /// For use in a wait for several objects; null when the queue's consumer waits alone.
    HANDLE GetNotEmptyEvent() const noexcept { return m_NotEmpty ? m_NotEmpty->Get() : nullptr; }

    /// For the thread that waits alone: returns once the queue holds something or Interrupt was called, true, or
    /// after `milliseconds`, false. May return true for neither.
    bool AwaitNotEmpty(DWORD milliseconds);

    /// Makes AwaitNotEmpty return, the running call or the next.
    void Interrupt();

private:
    std::deque<CSerialPortCommand*>& Commands() noexcept REQUIRES(m_Section) { return c; }
    void SetCount() noexcept REQUIRES(m_Section)
    {
        m_Count.store(static_cast<std::int32_t>(c.size()), std::memory_order_relaxed);
    }

    win32::CriticalSection m_Section;               // guards the commands, too
    std::optional<win32::Event> m_NotEmpty;         // manual reset; reset under m_Section, set outside
    win32::ConditionVariable m_FilledOrInterrupted; // without m_NotEmpty
    bool m_Interrupted GUARDED_BY(m_Section) = false;
    std::atomic<std::int32_t> m_Count{0}; // changed under m_Section
};
