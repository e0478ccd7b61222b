// The locked queue that carries packets between threads.
#pragma once

#include "ports/CSerialPortCommand.h"
#include "win32/CriticalSection.h"
#include "win32/Event.h"

#include <atomic>
#include <deque>
#include <memory>
#include <queue>

/// First in, first out. Any thread may call any member. The not-empty event is set exactly while the queue holds
/// something, as seen under the lock; a waiter may still lose the race for the last command and pop null.
class CCommandQueue : private std::queue<CSerialPortCommand*, std::deque<CSerialPortCommand*>>
{
public:
    CCommandQueue() noexcept;
    /// Clears the queue, which destroys no command: see Clear.
    virtual ~CCommandQueue();
    CCommandQueue(const CCommandQueue&) = delete;
    CCommandQueue& operator=(const CCommandQueue&) = delete;

    /// Appends a command, whose ownership passes to whoever pops it, and returns the count. Null is ignored.
    std::int32_t Push(CSerialPortCommand* command);

    /// The oldest command, now the caller's, or null.
    CSerialPortCommand* Pop();

    /// The count, read without the lock: good for limits and traces.
    std::int32_t GetCount() const noexcept { return m_Count.load(std::memory_order_relaxed); }

    /// Drops all commands without destroying them: the queue does not own their lifetime. That is meant; add no
    /// delete here. An owner that is through with its packets calls DestroyAll.
    void Clear();

    /// Takes all commands out at once and destroys them.
    void DestroyAll();

    HANDLE GetNotEmptyEvent() const noexcept { return m_NotEmpty.Get(); }

private:
    win32::CriticalSection m_Section; // guards the queue, m_Count's changes and the event's state
    win32::Event m_NotEmpty;          // manual reset
    std::atomic<std::int32_t> m_Count{0};
};
