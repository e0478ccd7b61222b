#include "ports/RequestReader.h"

#include <new>

RequestReader::RequestReader(std::int32_t bufferSize)
    : m_size(bufferSize > 0 ? static_cast<std::size_t>(bufferSize) : 0),
      m_buffer(m_size > 0 ? new(std::nothrow) std::uint8_t[m_size] : nullptr)
{
}

void RequestReader::Start(HANDLE pipe, bool reportRefusal)
{
    m_isReading = true;
    m_keptLength = 0;
    if (m_buffer && !m_read.IsPending() && !m_read.Read(pipe, m_buffer.get(), static_cast<DWORD>(m_size)) &&
        reportRefusal)
    {
        m_read.ReportRefusal();
    }
}

std::optional<RequestReader::Message> RequestReader::Finish(HANDLE pipe)
{
    m_isReading = false;
    DWORD length = 0;
    if (!m_read.Finish(pipe, length)) {
        return std::nullopt;
    }
    return Message(m_buffer.get(), m_buffer ? length : 0);
}

std::optional<RequestReader::Message> RequestReader::Cancel()
{
    m_keptLength = 0;
    DWORD length = 0;
    if (!m_read.CancelAndFinish(length) || !m_buffer) {
        return std::nullopt;
    }
    return Message(m_buffer.get(), length);
}
