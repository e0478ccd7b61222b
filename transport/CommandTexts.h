// What the command thread writes to the trace log. Each way to the instrument has texts of its own, whole in the
// source, so that a line of a log is found by searching for it.
#pragma once

/// Formats of Trace; the values of each are named after it.
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
