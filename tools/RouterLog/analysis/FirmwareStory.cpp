#include "tools/RouterLog/analysis/FirmwareStory.h"

#include <algorithm>
#include <utility>

namespace routerlog {

void FirmwareStory::Take(const LogLine& line)
{
    const auto answer = [this](Reason reason) {
        m_answered = true;
        m_acknowledgedLast = false;
        m_answer = reason;
    };
    switch (line.Kind()) {
    case Form::FirmwareDownload:
        Interrupt(line.where); // a download that did not end is begun again at a new connection
        break;
    case Form::FirmwareStart:
        if (!m_active) {
            Begin(line.where);
        }
        break;
    case Form::FirmwareRetry: ++m_retries; break;
    case Form::FirmwareReceiveReady: answer(Reason::UnknownAnswer); break;
    case Form::FirmwareUnable: answer(Reason::SizeRefused); break;
    case Form::FirmwareDeny: answer(Reason::Denied); break;
    case Form::FirmwareReady: answer(Reason::FirmwareReady); break;
    case Form::FirmwareFail: answer(Reason::DownloadFail); break;
    case Form::FirmwareRebooting: answer(Reason::Rebooting); break;
    case Form::FirmwareOk:
        ++m_acknowledged;
        m_acknowledgedLast = true;
        m_acknowledgedAt = line.where.time;
        break;
    case Form::FirmwareChunk:
        m_bytes = std::max(m_bytes, line.match.Number(0) + line.match.Number(1));
        ++m_chunks;
        break;
    case Form::FirmwareReplyCame:
        m_repliesTraced = true;
        m_acknowledgedLast = false; // its own line follows, if it is one that the router knows
        m_answer = Reason::UnknownAnswer;
        m_answered = true;
        break;
    case Form::FirmwareCompleted: Complete(line.where); break;
    default: break;
    }
}

void FirmwareStory::Begin(const Where& where)
{
    m_begin = where;
    m_active = true;
    m_bytes = m_chunks = m_acknowledged = 0;
    m_retries = 0;
    m_answered = m_acknowledgedLast = m_repliesTraced = false;
    m_answer = Reason::UnknownAnswer;
}

void FirmwareStory::Complete(const Where& where)
{
    if (!std::exchange(m_active, false)) {
        return; // the instrument spoke unasked
    }
    Incident end{.kind = IncidentKind::FirmwareFailed, .traceClass = TraceClass::Firmware, .where = where};
    end.duration = std::max<std::int64_t>(where.time - m_begin.time, 0);
    end.count = m_bytes;
    end.first = m_acknowledged;
    end.second = m_chunks;
    end.reason = m_answer;
    if (WasDownloaded(where)) {
        end.kind = IncidentKind::FirmwareDownloaded;
        end.reason = Reason::Unknown;
    } else if (m_answer == Reason::Denied || m_answer == Reason::SizeRefused) {
        end.kind = IncidentKind::FirmwareRefused;
    }
    m_incidents.Add(std::move(end));
}

// The dialogue ends well with the acknowledgement of its last message: of the closing one, or, when all was sent
// at once, of the first. Where the transport is not traced an answer without a line of its own may have come after
// it.
bool FirmwareStory::WasDownloaded(const Where& completed) const noexcept
{
    if (!m_acknowledgedLast || m_repliesTraced || m_acknowledged > m_chunks) {
        return m_acknowledgedLast;
    }
    return m_acknowledged == 1 && completed.time == m_acknowledgedAt;
}

void FirmwareStory::Interrupt(const Where& where)
{
    if (!m_active) {
        return;
    }
    if (IsUnanswered()) {
        AddUnanswered();
    } else {
        Incident end{
            .kind = IncidentKind::FirmwareInterrupted, .traceClass = TraceClass::Firmware, .where = where};
        end.duration = std::max<std::int64_t>(where.time - m_begin.time, 0);
        end.count = m_bytes;
        end.first = m_acknowledged;
        end.second = m_chunks;
        m_incidents.Add(std::move(end));
    }
    m_active = false;
}

void FirmwareStory::Finish()
{
    if (IsUnanswered()) {
        AddUnanswered();
    }
}

void FirmwareStory::AddUnanswered()
{
    Incident end{.kind = IncidentKind::FirmwareUnanswered, .traceClass = TraceClass::Firmware, .where = m_begin};
    end.count = m_retries + 1;
    m_incidents.Add(std::move(end));
}

} // namespace routerlog
