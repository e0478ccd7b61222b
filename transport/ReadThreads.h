// The threads that only read: a read is always pending, and what it brings goes to the reply queue.
#pragma once

#include "transport/Connection.h"
#include "transport/Replies.h"
#include "win32/Thread.h"

class CCyUSBEndPoint;

/// The read threads of one link. Started and joined by the command thread.
class ReadThreads
{
public:
    /// Both are borrowed and must outlive the threads.
    ReadThreads(Connection& connection, Replies& replies) noexcept : m_connection(connection), m_replies(replies)
    {
    }

    /// Starts the read thread over `in`, which is lent until Stop, unless one is held. False when Windows has no
    /// thread for it, which was traced.
    bool StartReading(CCyUSBEndPoint* in);
    /// Ends and joins the threads that are held.
    void Stop();

    // Bodies of the threads; each returns at once when there is nothing to read from, and else after m_hStop or
    // m_hStopRead. After a failed read none follows.
    static void USBReadWaitThread(Connection& connection, Replies& replies, CCyUSBEndPoint* in);
    /// By design not started by the simulation, whose command thread reads the pipe itself. Throws std::bad_alloc.
    static void SimulationReadWaitThread(Connection& connection, Replies& replies, HANDLE pipe);

private:
    Connection& m_connection;
    Replies& m_replies;
    win32::Thread m_hReadThread;
    win32::Thread m_hReadThread2; // by design never started
};
