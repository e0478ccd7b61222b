// The simulated instrument: one pipe to the simulator, written and read by the command thread.
#pragma once

#include "transport/Connection.h"
#include "transport/Link.h"
#include "transport/Replies.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"

#include <cstdint>
#include <vector>

class SimulationLink final : public ILink
{
public:
    static constexpr Traits LinkTraits{
        .texts = SimulationCommandTexts, .abortsWrites = false, .watchesHosts = false, .tracesBufferSize = true};

    /// Both are borrowed. Throws std::bad_alloc, also when there is no event for the reads.
    SimulationLink(Connection& connection, Replies& replies);

    const Traits& GetTraits() const noexcept override { return LinkTraits; }
    bool Open() override;
    bool BeginReading() override
    {
        StartRead();
        return true;
    }
    void StopReading() override {}
    void Close() override;

    bool CanWrite() const noexcept override { return m_pipe && !m_writeInFlight; }
    bool IsWriting() const noexcept override { return m_writeInFlight; }
    void BeginWrite(std::unique_ptr<CSerialPortCommand> packet) override;
    std::optional<TransferEnd> FinishWrite() override;
    void AbortWrite() noexcept override {}

    void FinishRead() override;

    HANDLE ReadEvent() const noexcept override { return m_read.EventHandle(); }
    HANDLE WriteEvent() const noexcept override { return m_write.EventHandle(); }
    win32::Expectation ExpectRead() const noexcept override { return m_read.Expected(); }
    win32::Expectation ExpectWrite() const noexcept override { return m_write.Expected(); }

private:
    void StartRead();

    Connection& m_connection;
    Replies& m_replies;
    std::vector<std::uint8_t> m_readBuffer;
    std::unique_ptr<CSerialPortCommand> m_lastWritten; // kept until the next: the write may still read it
    win32::FileHandle m_pipe;
    bool m_writeInFlight = false;

    // Declared after all that they write to or read from: each cancels and waits in its destructor.
    win32::OverlappedOperation m_write;
    win32::OverlappedOperation m_read;
};
