#include "transport/SimulationLink.h"

#include "trace/Trace.h"

#include <new>
#include <utility>

SimulationLink::SimulationLink(Connection& connection, Replies& replies)
    : m_connection(connection), m_replies(replies), m_readBuffer(TransferLength)
{
    if (m_read.EventHandle() == nullptr) {
        throw std::bad_alloc();
    }
}

bool SimulationLink::Open()
{
    constexpr const char* pipe = R"(\\.\pipe\UsbPipeSimulator)";
    m_pipe.Reset(::CreateFileA(pipe, GENERIC_ALL, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!m_pipe) {
        return false;
    }
    Trace(trace::RouterChannel, trace::Usb, "Connection to USB-Simulation opened (%s)", pipe);
    return true;
}

// A simulator that wrote and left lets the read fail at once. The refusal is then handled like any other failed
// read.
void SimulationLink::StartRead()
{
    if (!m_read.Read(m_pipe.Get(), m_readBuffer.data(), TransferLength)) {
        m_read.ReportRefusal();
    }
}

void SimulationLink::FinishRead()
{
    DWORD length = 0;
    if (m_read.Finish(m_pipe.Get(), length)) {
        m_connection.CountTransferred(length);
        m_replies.ApppendToReplyProcessQueue({m_readBuffer.data(), length});
        return StartRead();
    }
    const DWORD error = ::GetLastError();
    if (error != ERROR_SUCCESS) {
        Trace(trace::RouterChannel, trace::Usb, "Reply-receive failed(%d), reconnecting...",
              static_cast<int>(error));
        m_connection.Drop();
    }
}

void SimulationLink::BeginWrite(std::unique_ptr<CSerialPortCommand> packet)
{
    m_lastWritten = std::move(packet);
    m_writeInFlight = true;
    if (!m_write.Write(m_pipe.Get(), m_lastWritten->GetData(), static_cast<DWORD>(m_lastWritten->GetLength()))) {
        m_write.ReportRefusal();
    }
}

std::optional<TransferEnd> SimulationLink::FinishWrite()
{
    DWORD length = 0;
    if (m_write.Finish(m_pipe.Get(), length)) {
        m_writeInFlight = false;
        return TransferEnd{.worked = true, .bytes = length, .error = ERROR_SUCCESS};
    }
    const DWORD error = ::GetLastError();
    if (error == ERROR_SUCCESS) {
        return std::nullopt; // unlike over USB, not even traced
    }
    return TransferEnd{.worked = false, .bytes = 0, .error = error};
}

void SimulationLink::Close()
{
    if (!m_pipe) {
        return;
    }
    m_read.Cancel();
    m_write.Cancel();
    ::DisconnectNamedPipe(m_pipe.Get());
    m_pipe.Reset();
    m_writeInFlight = false;
}
