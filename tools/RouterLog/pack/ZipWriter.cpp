#include "tools/RouterLog/pack/ZipWriter.h"

#include "tools/RouterLog/log/LittleEndian.h"
#include "tools/RouterLog/pack/Deflate.h"

#include <array>
#include <utility>

namespace routerlog {

namespace {

constexpr std::array<std::uint32_t, 256> CrcTable()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1) != 0 ? value >> 1 ^ 0xEDB88320U : value >> 1;
        }
        table[i] = value;
    }
    return table;
}

} // namespace

std::uint32_t Crc32(std::string_view bytes) noexcept
{
    static constexpr std::array<std::uint32_t, 256> table = CrcTable();
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const char each : bytes) {
        crc = crc >> 8 ^ table[(crc ^ static_cast<unsigned char>(each)) & 0xFF];
    }
    return ~crc;
}

void ZipWriter::Add(const std::string& name, std::string_view bytes)
{
    constexpr std::uint32_t Version = 20;
    constexpr std::uint32_t NamesAreUtf8 = 0x0800;
    constexpr std::uint32_t Deflated = 8;
    constexpr std::uint32_t FirstOf1980 = 0x0021; // a date that every reader takes
    const std::string packed = Deflate(bytes);
    std::string common;
    Put16(common, Version);
    Put16(common, NamesAreUtf8);
    Put16(common, Deflated);
    Put16(common, 0);
    Put16(common, FirstOf1980);
    Put32(common, Crc32(bytes));
    Put32(common, static_cast<std::uint32_t>(packed.size()));
    Put32(common, static_cast<std::uint32_t>(bytes.size()));
    Put16(common, static_cast<std::uint32_t>(name.size()));
    Put16(common, 0); // no extra field
    const auto offset = static_cast<std::uint32_t>(m_out.size());
    Put32(m_out, 0x04034B50);
    m_out += common + name + packed;
    Put32(m_directory, 0x02014B50);
    Put16(m_directory, Version);
    m_directory += common;
    Put16(m_directory, 0); // no comment
    Put16(m_directory, 0); // first disk
    Put16(m_directory, 0); // attributes
    Put32(m_directory, 0);
    Put32(m_directory, offset);
    m_directory += name;
    ++m_entries;
}

std::string ZipWriter::Finish()
{
    const auto offset = static_cast<std::uint32_t>(m_out.size());
    m_out += m_directory;
    Put32(m_out, 0x06054B50);
    Put32(m_out, 0); // disks
    Put16(m_out, m_entries);
    Put16(m_out, m_entries);
    Put32(m_out, static_cast<std::uint32_t>(m_directory.size()));
    Put32(m_out, offset);
    Put16(m_out, 0); // no comment
    return std::move(m_out);
}

} // namespace routerlog
