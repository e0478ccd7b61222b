// One way to the instrument, as the command thread uses it: USB or the simulator's pipe.
#pragma once

#include "ports/packet/CSerialPortCommand.h"
#include "win32/WaitSet.h"

#include <cstdint>
#include <memory>
#include <optional>

/// What the command thread writes to the trace log: formats of Trace; the values of each are named after it. Each
/// way to the instrument has texts of its own, whole in the source, so that a line of a log is found by searching
/// for it.
struct CommandTexts
{
    const char* cannotRun;
    const char* started;
    const char* failed;
    const char* ended;
    const char* connecting;    // number of the attempt
    const char* pendingWrites; // packets in the queue
    const char* written;       // bytes
    const char* blocked;       // writes aborted so far
    const char* aborts;        // writes aborted so far; null where no write is aborted
    const char* idleBlocked;   // writes aborted so far
    const char* idle;          // packets in the queue
};

extern const CommandTexts UsbCommandTexts;
extern const CommandTexts SimulationCommandTexts;

/// How a transfer ended. A failure may be one that Windows has no error for.
struct TransferEnd
{
    bool worked;
    std::uint32_t bytes; // transferred
    DWORD error;         // of a failure
};

/// Lives on the command thread, which alone uses it. At most one write at a time.
class ILink
{
public:
    /// What differs in the command thread's timing and traces.
    struct Traits
    {
        const CommandTexts& texts;
        bool abortsWrites;     // a write that blocks others; else it is only reported
        bool watchesHosts;     // ends the process when no host program is left
        bool tracesBufferSize; // by design: in place of the bytes that were written
    };

    virtual ~ILink() = default;

    virtual const Traits& GetTraits() const noexcept = 0;

    /// Finds and opens the instrument, and traces what it opened; false when there is none. Only while closed.
    virtual bool Open() = 0;
    /// Starts reading from what Open opened. False when it cannot be read from; the reason was traced.
    virtual bool BeginReading() = 0;
    /// Ends the reading that is done by other threads, which use what Open opened. Harmless when there is none.
    virtual void StopReading() = 0;
    /// Cancels all transfers and closes. Only after StopReading. Harmless while closed.
    virtual void Close() = 0;

    /// Whether the next write may begin.
    virtual bool CanWrite() const noexcept = 0;
    virtual bool IsWriting() const noexcept = 0;
    /// Begins the write of `packet`, which is not empty and is kept until the write has ended. Only while
    /// CanWrite. A write that is refused ends like one that failed.
    virtual void BeginWrite(std::unique_ptr<CSerialPortCommand> packet) = 0;
    /// The result of the write, which is over then unless it failed without an error. None when there is none to
    /// take.
    virtual std::optional<TransferEnd> FinishWrite() = 0;
    /// Gives up the write that is pending; the packet is lost.
    virtual void AbortWrite() noexcept = 0;

    /// Takes the result of a read, when the link reads by the command thread: queues what it brought and reads on.
    virtual void FinishRead() = 0;

    // For the wait. An object that is never expected may be null.
    virtual HANDLE ReadEvent() const noexcept = 0;
    virtual HANDLE WriteEvent() const noexcept = 0;
    virtual win32::Expectation ExpectRead() const noexcept = 0;
    virtual win32::Expectation ExpectWrite() const noexcept = 0;
};
