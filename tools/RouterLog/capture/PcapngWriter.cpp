#include "tools/RouterLog/capture/PcapngWriter.h"

#include "tools/RouterLog/log/LittleEndian.h"

#include <algorithm>
#include <utility>

namespace routerlog {

namespace {

void Pad(std::string& out)
{
    out.resize((out.size() + 3) / 4 * 4, '\0');
}

void PutOption(std::string& out, std::uint32_t code, std::string_view value)
{
    Put16(out, code);
    Put16(out, static_cast<std::uint32_t>(value.size()));
    out += value;
    Pad(out);
}

void PutEndOfOptions(std::string& out)
{
    PutOption(out, 0, {});
}

} // namespace

PcapngWriter::PcapngWriter(WriteBytes write, std::string_view application) : m_write(std::move(write))
{
    constexpr std::uint32_t SectionHeader = 0x0A0D0D0A;
    constexpr std::uint32_t UserApplication = 4;
    std::string body;
    Put32(body, 0x1A2B3C4D); // byte order
    Put16(body, 1);          // version 1.0
    Put16(body, 0);
    Put32(body, 0xFFFFFFFF); // length not given
    Put32(body, 0xFFFFFFFF);
    PutOption(body, UserApplication, application);
    PutEndOfOptions(body);
    AddBlock(SectionHeader, body);
}

std::uint32_t PcapngWriter::AddInterface(std::uint16_t linkType, std::string_view name)
{
    constexpr std::uint32_t InterfaceDescription = 1;
    constexpr std::uint32_t Name = 2;
    constexpr std::uint32_t TimeResolution = 9;
    std::string body;
    Put16(body, linkType);
    Put16(body, 0);
    Put32(body, 0); // no limit of length
    PutOption(body, Name, name);
    PutOption(body, TimeResolution, std::string_view("\x03", 1)); // 10^-3 s
    PutEndOfOptions(body);
    AddBlock(InterfaceDescription, body);
    return m_interfaces++;
}

void PcapngWriter::AddPacket(std::uint32_t interfaceIndex, std::int64_t time, std::span<const std::uint8_t> bytes,
                             std::uint32_t originalLength, CaptureDirection direction)
{
    constexpr std::uint32_t EnhancedPacket = 6;
    constexpr std::uint32_t Flags = 2;
    const auto when = static_cast<std::uint64_t>(time);
    std::string body;
    Put32(body, interfaceIndex);
    Put32(body, static_cast<std::uint32_t>(when >> 32));
    Put32(body, static_cast<std::uint32_t>(when));
    Put32(body, static_cast<std::uint32_t>(bytes.size()));
    Put32(body, std::max(originalLength, static_cast<std::uint32_t>(bytes.size())));
    body.append(bytes.begin(), bytes.end());
    Pad(body);
    std::string flags;
    Put32(flags, static_cast<std::uint32_t>(direction));
    PutOption(body, Flags, flags);
    PutEndOfOptions(body);
    AddBlock(EnhancedPacket, body);
}

void PcapngWriter::AddBlock(std::uint32_t type, const std::string& body)
{
    const auto length = static_cast<std::uint32_t>(body.size() + 12);
    std::string block;
    Put32(block, type);
    Put32(block, length);
    block += body;
    Put32(block, length);
    m_write(block);
}

} // namespace routerlog
