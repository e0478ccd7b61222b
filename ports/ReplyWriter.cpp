#include "ports/ReplyWriter.h"

const CSerialPortCommand* ReplyWriter::Start(HANDLE pipe, std::unique_ptr<CSerialPortCommand> packet)
{
    m_packet = std::move(packet);
    if (!m_packet || m_packet->GetLength() < 1) {
        return nullptr;
    }
    m_mayWrite = false;
    m_startedAt = ::GetTickCount64();
    if (!m_write.Write(pipe, m_packet->GetData(), static_cast<DWORD>(m_packet->GetLength()))) {
        m_write.ReportRefusal();
    }
    return m_packet.get();
}

bool ReplyWriter::Finish(HANDLE pipe)
{
    DWORD unused = 0;
    const bool written = m_write.Finish(pipe, unused);
    m_mayWrite = m_mayWrite || written;
    return written;
}

DWORD ReplyWriter::TimeLeftMs() const noexcept
{
    if (!m_write.IsPending()) {
        return 0;
    }
    const ULONGLONG passed = ::GetTickCount64() - m_startedAt;
    return passed < PermissionTimeMs ? static_cast<DWORD>(PermissionTimeMs - passed) : 0;
}
