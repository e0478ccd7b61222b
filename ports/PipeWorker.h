// The worker of one port: what PipeProcessThread does.
#pragma once

#include "ports/PipeServer.h"
#include "ports/PortState.h"
#include "ports/ReplyWriter.h"
#include "ports/RequestReader.h"
#include "transport/CCommunicationDriver.h"
#include "win32/WaitSet.h"

#include <functional>

/// Lives on the port's worker thread and is used by it alone. Everything lent must outlive it.
class PipeWorker
{
public:
    /// Takes one message of the client, of at least 0 bytes, on the worker's thread.
    using OnMessage = std::function<void(RequestReader::Message)>;

    PipeWorker(const PortSettings& settings, PortState& state, CCommunicationDriver* transport,
               OnMessage onMessage);

    /// Serves the port until it is stopped.
    void Run();

private:
    /// In wait order: of several signalled objects the first counts.
    enum class Slot : DWORD {
        Stop,
        Recreate,
        Connected,
        Written,
        ReadEnabled,
        ReadDone,
        PacketQueued,
        TimedOut = WAIT_TIMEOUT,
        Failed = WAIT_FAILED
    };

    Slot Wait();
    win32::Expectation ExpectReadEnabled();
    void Handle(Slot slot);
    void OnQuiet();
    void OnStop();
    void OnRecreate();
    void OnConnected();
    void OnWritten();
    void OnReadEnabled();
    void OnReadDone();
    void OnPacketQueued();

    void HandOver(RequestReader::Message message);
    void HandOverLastMessage();
    void ClosePipe();
    void WriteNext();
    void Recreate(const char* broken, DWORD error);
    void TraceName(const char* format);

    const PortSettings& m_settings;
    PortState& m_state;
    CCommunicationDriver* const m_transport; // may be null
    const OnMessage m_onMessage;
    bool m_running = true;
    int m_idlePasses = 0;

    // In this order: the reader and the writer cancel before the pipe is closed.
    PipeServer m_server;
    RequestReader m_reader;
    ReplyWriter m_writer;
    const win32::WaitSet<Slot, 7> m_waits;
};
