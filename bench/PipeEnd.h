// One end of a bare pipe: the same code for the client, with a router in between or without, and for whoever
// answers.
#pragma once

#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace bench {

/// One thread. Operations return when they are complete; a false or empty result means that the pipe is broken.
class PipeEnd
{
public:
    PipeEnd() : m_buffer(65536) {}

    /// Opens the pipe of that name as a client, tried again until it is there.
    bool Open(const std::wstring& name, std::chrono::milliseconds timeout);

    /// Makes the pipe, PIPE_TYPE_MESSAGE or PIPE_TYPE_BYTE, one instance, as the router makes its own.
    bool Make(const std::wstring& name, DWORD type);
    /// Waits for a client of the pipe that was made.
    bool AwaitClient();
    /// Lets the client go.
    void DropClient();

    /// From now on a read takes one message.
    void ReadMessages();

    bool Write(std::span<const std::uint8_t> bytes);
    /// What there is, at most 65,536 bytes; valid until the next read.
    std::span<const std::uint8_t> Read();
    /// The same, given up after `timeout`: then nothing is lost and the read is over.
    std::span<const std::uint8_t> ReadWithin(std::chrono::milliseconds timeout);
    bool ReadExactly(std::size_t count);

    void Close();

private:
    bool Complete(win32::OverlappedOperation& operation, DWORD& length);

    std::vector<std::uint8_t> m_buffer;
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_read;
    win32::OverlappedOperation m_write;
};

} // namespace bench
