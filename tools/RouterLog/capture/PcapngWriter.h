// Capture files for Wireshark. Portable.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace routerlog {

/// Takes bytes of the file, in order.
using WriteBytes = std::function<void(std::string_view)>;

enum class CaptureDirection : std::uint8_t { Unknown, Inbound, Outbound };

/// One section of a pcapng file, as draft-ietf-opsawg-pcapng has it, in little-endian order. One thread.
class PcapngWriter
{
public:
    /// Writes the section header.
    PcapngWriter(WriteBytes write, std::string_view application);

    /// Its index. Times are in milliseconds.
    std::uint32_t AddInterface(std::uint16_t linkType, std::string_view name);

    /// `originalLength` is how long the packet was, of which `bytes` are known. `time`: milliseconds since 1970.
    void AddPacket(std::uint32_t interfaceIndex, std::int64_t time, std::span<const std::uint8_t> bytes,
                   std::uint32_t originalLength, CaptureDirection direction);

private:
    void AddBlock(std::uint32_t type, const std::string& body);

    WriteBytes m_write;
    std::uint32_t m_interfaces = 0;
};

} // namespace routerlog
