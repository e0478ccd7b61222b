#include "tools/RouterLog/analysis/Account.h"

#include <algorithm>
#include <utility>

namespace routerlog {

namespace {

constexpr std::int64_t ClockTolerance = 1'000;       // ms
constexpr std::int64_t SilenceWorthTelling = 15'000; // ms; a router that traces USB events writes each second
constexpr std::size_t LongestForeignLine = 160;

constexpr std::uint32_t FileHalf = 0xFFFF'0000;

} // namespace

void Account::TakeFile(const std::string& name, IByteSource& source)
{
    BeginFile(name);
    LineReader reader(source);
    while (const auto raw = reader.Next()) {
        TakeLine(*raw);
    }
}

void Account::BeginFile(const std::string& name)
{
    m_files.push_back({name, 0, 0});
    m_router.BeginFile();
}

void Account::TakeLine(const RawLine& raw)
{
    AccountedFile& file = m_files.back();
    ++file.lines;
    file.bytes += raw.text.size();
    LogLine line;
    line.where = {static_cast<std::uint32_t>(m_files.size() - 1), raw.number, ++m_sequence, m_last.time,
                  m_last.hasTime};
    line.text = raw.text;
    if (const auto time = ParseStamp(raw.text)) {
        line.stamped = true;
        line.where.time = *time;
        line.where.hasTime = true;
        line.text.remove_prefix(StampLength);
    }
    line.match = m_grammar.Match(line.text);
    if (line.match && line.Kind() == Form::SkippedPacket) {
        if (const auto time = ParseSkippedStamp(line.match.Text(0))) {
            line.where.time = *time;
            m_skipped.Take(line);
            CountClass(line);
            return;
        }
        line.match = {};
    }
    // The end of a line may not be written yet, and one format takes any text.
    if (!raw.ended && line.match && line.Kind() == Form::UsbThreadFault) {
        line.match = {};
    }
    // What is stamped otherwise than the router does it was not written whole.
    if (!line.match || line.stamped == IsBare(line.Kind())) {
        TakeForeign(line);
        return;
    }
    Take(line);
}

void Account::Take(const LogLine& line)
{
    TakeTime(line);
    m_last = line.where;
    CountClass(line);
    m_router.Take(line);
    if (m_router.HasJustEnded() || m_router.HasJustStarted()) {
        m_firmware.Interrupt(line.where);
        m_connection.Reset();
        m_ports.Reset(line.where);
    }
    m_connection.Take(line);
    if (m_connection.HasJustBeenLost()) {
        m_firmware.Interrupt(line.where);
        m_ports.CutOffClients(line.where);
    }
    m_firmware.Take(line);
    m_ports.Take(line);
    m_skipped.Take(line);
    UpdateState(line);
}

void Account::TakeTime(const LogLine& line)
{
    if (!line.stamped) {
        return;
    }
    if (!m_firstTime) {
        m_firstTime = line.where.time;
    }
    if (!m_last.hasTime) {
        return;
    }
    const std::int64_t step = line.where.time - m_last.time;
    if (step < -ClockTolerance) {
        Incident back{.kind = IncidentKind::ClockSetBack, .where = line.where};
        back.duration = -step;
        m_incidents.Add(std::move(back));
    } else if (step > SilenceWorthTelling && IsTraced(TraceClass::Usb) &&
               m_router.Now() == RouterStory::State::Running && line.Kind() != Form::BeginLogging &&
               line.Kind() != Form::BufferOverflow) // which counts the lines that were lost meanwhile
    {
        Incident silence{.kind = IncidentKind::NothingTraced, .traceClass = TraceClass::Usb, .where = m_last};
        silence.duration = step;
        m_incidents.Add(std::move(silence));
    }
}

void Account::TakeForeign(const LogLine& line)
{
    if (line.text.empty() && !line.stamped) {
        return; // an empty line counts for nothing
    }
    ++m_foreignCount;
    if (m_foreign.size() < ForeignLinesKept) {
        m_foreign.push_back({line.where, std::string(line.text.substr(0, LongestForeignLine))});
    }
}

void Account::CountClass(const LogLine& line)
{
    ClassUse& use = m_uses[static_cast<std::size_t>(line.match.format->traceClass)];
    if (use.lines++ == 0) {
        use.first = line.where.time;
    }
    use.last = line.where.time;
    if (line.Kind() == Form::DebugOptions) {
        TakeDeclaredMask(line);
    }
}

// The summary names devices, not numbers: the router's own two by names that no other device has.
void Account::TakeDeclaredMask(const LogLine& line)
{
    const auto mask = static_cast<std::uint32_t>(line.match.Number(1)) & FileHalf;
    const auto declare = [&](TraceClass traceClass) {
        ClassUse& use = m_uses[static_cast<std::size_t>(traceClass)];
        use.declared = use.declared.value_or(false) || (mask & TextOf(traceClass).fileBit) != 0;
    };
    if (line.match.Text(0) == "_FirmwareDebug") {
        declare(TraceClass::ReadWrite);
        declare(TraceClass::Usb);
        declare(TraceClass::Dispatch);
    } else if (line.match.Text(0) == "_FirmwareDownload") {
        declare(TraceClass::Firmware);
    } else {
        declare(TraceClass::Packets);
        declare(TraceClass::Pipe);
    }
}

void Account::UpdateState(const LogLine& line)
{
    RouterState state = RouterState::Unknown;
    switch (m_router.Now()) {
    case RouterStory::State::Ended:
    case RouterStory::State::Vanished: state = RouterState::NotRunning; break;
    case RouterStory::State::Running:
        if (m_connection.Now() == ConnectionStory::State::Connected) {
            state = m_firmware.IsDownloading() ? RouterState::Downloading : RouterState::Connected;
        } else if (m_connection.Now() == ConnectionStory::State::Searching) {
            state = RouterState::Searching;
        }
        break;
    case RouterStory::State::Unknown:
    case RouterStory::State::TracingOff: break;
    }
    if (line.where.hasTime && state != m_states.Current()) {
        m_states.Set(state, line.where.time);
    }
}

void Account::Finish()
{
    if (std::exchange(m_finished, true)) {
        return;
    }
    m_router.Finish();
    m_connection.Finish();
    if (m_connection.HasJustBeenLost()) {
        m_ports.CutOffClients(m_last);
    }
    m_firmware.Finish();
    m_ports.Finish(m_last);
}

} // namespace routerlog
