#include "tools/RouterLog/capture/PacketExport.h"

#include <algorithm>
#include <utility>

namespace routerlog {

namespace {

enum Interface : std::uint32_t { Usb, Ports, Events };

constexpr std::uint16_t User0 = 147;
constexpr std::int64_t EpochOfLogTime = 946'684'800'000; // 2000-01-01 in milliseconds since 1970
constexpr std::int64_t LongestPacket = 1 << 24;          // beyond it a length in the log is no length

void PutAddress(std::vector<std::uint8_t>& out, std::int64_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<std::uint8_t>(value >> shift & 0xFF));
    }
}

bool IsEvent(Form form) noexcept
{
    switch (form) {
    case Form::ConnectOpened:
    case Form::SimConnectOpened:
    case Form::ReceiveFailed:
    case Form::SendFailed:
    case Form::NotifyState:
    case Form::UsbWriteAborted:
    case Form::UsbIdleWriteAborted:
    case Form::NumberGap:
    case Form::HostGone:
    case Form::PipeConnected:
    case Form::PipeReadBroken:
    case Form::PipeWriteBroken: return true;
    default: return form >= Form::FirmwareFile && form != Form::FirmwareNeeded;
    }
}

} // namespace

PacketExport::PacketExport(WriteBytes write) : m_writer(std::move(write), "RouterLog")
{
    m_writer.AddInterface(User0, "usb");
    m_writer.AddInterface(User0 + 1, "ports");
    m_writer.AddInterface(User0 + 3, "events"); // Wireshark takes the one between for something of its own
}

void PacketExport::TakeFile(IByteSource& source)
{
    LineReader reader(source);
    while (const auto raw = reader.Next()) {
        if (const auto time = ParseStamp(raw->text)) {
            m_time = *time;
            TakeLine(raw->text.substr(StampLength));
        }
    }
}

void PacketExport::TakeLine(std::string_view text)
{
    const LineMatch match = m_grammar.Match(text);
    if (!match) {
        return;
    }
    const bool full = text.size() >= LongestTracedText;
    const Form form = match.format->form;
    m_bytes.clear();
    if (form == Form::RawWrite || form == Form::RawRead) {
        AddDump(Usb, match.Text(1), match.Number(0), full,
                form == Form::RawWrite ? CaptureDirection::Outbound : CaptureDirection::Inbound);
    } else if (form == Form::Request || form == Form::Reply) {
        PutAddress(m_bytes, match.Number(0));
        PutAddress(m_bytes, match.Number(1));
        AddDump(Ports, match.Text(3), match.Number(2), full,
                form == Form::Request ? CaptureDirection::Outbound : CaptureDirection::Inbound);
    } else if (IsEvent(form)) {
        m_bytes.assign(text.begin(), text.end());
        m_writer.AddPacket(Events, m_time + EpochOfLogTime, m_bytes, static_cast<std::uint32_t>(m_bytes.size()),
                           CaptureDirection::Unknown);
    }
}

// After what m_bytes holds already.
void PacketExport::AddDump(std::uint32_t interfaceIndex, std::string_view dump, std::int64_t length, bool fullLine,
                           CaptureDirection direction)
{
    if (length < 1 || length > LongestPacket) {
        ++m_damaged;
        return;
    }
    ParseDump(dump, fullLine, m_dump);
    m_damaged += m_dump.wellFormed ? 0 : 1;
    const std::size_t header = m_bytes.size();
    const std::size_t known = std::min(m_dump.bytes.size(), static_cast<std::size_t>(length));
    m_bytes.insert(m_bytes.end(), m_dump.bytes.begin(), m_dump.bytes.begin() + static_cast<std::ptrdiff_t>(known));
    m_cut += known < static_cast<std::size_t>(length) ? 1 : 0;
    ++m_packets;
    m_writer.AddPacket(interfaceIndex, m_time + EpochOfLogTime, m_bytes,
                       static_cast<std::uint32_t>(header + static_cast<std::size_t>(length)), direction);
}

} // namespace routerlog
