#include "diag/CDebugOption.h"

#include "win32/RegistryKey.h"

#include <array>
#include <cwchar>

namespace {

constexpr std::size_t NameCapacity = 256; // characters, with the terminator

} // namespace

CDebugOption::CDebugOption(std::int32_t deviceNumber) : DeviceNumber(deviceNumber) {}

bool CDebugOption::Persist(HKEY parentKey, bool save)
{
    std::array<wchar_t, 12> name{};
    ::_itow_s(DeviceNumber, name.data(), name.size(), 10);
    const win32::RegistryKey key = save ? win32::RegistryKey::Create(parentKey, name.data(), KEY_READ | KEY_WRITE)
                                        : win32::RegistryKey::Open(parentKey, name.data(), KEY_READ);
    if (!key) {
        return false;
    }
    if (save) {
        Save(key);
    } else {
        Load(key);
    }
    return true;
}

void CDebugOption::Save(const win32::RegistryKey& key) const
{
    key.WriteString(L"DeviceName", DeviceName);
    key.WriteDword(L"DebugMask", GetMask());
    key.WriteDword(L"MaxPacketLength", MaxPacketLength);
    key.WriteDword(L"MaxParsedPacketLength", MaxParsedPacketLength);
    key.WriteDword(L"EnableSimulation", EnableSimulation);
}

void CDebugOption::Load(const win32::RegistryKey& key)
{
    DeviceName = key.ReadString(L"DeviceName", NameCapacity).value_or(DeviceName);
    SetMask(key.ReadDword(L"DebugMask").value_or(0));
    MaxPacketLength = key.ReadDword(L"MaxPacketLength").value_or(MaxPacketLength);
    MaxParsedPacketLength = key.ReadDword(L"MaxParsedPacketLength").value_or(MaxParsedPacketLength);
    EnableSimulation = key.ReadDword(L"EnableSimulation").value_or(EnableSimulation);
}

std::uint32_t CDebugOption::GetMask() const
{
    return static_cast<std::uint32_t>(m_debugMask.to_ulong());
}

void CDebugOption::SetMask(std::uint32_t mask)
{
    m_debugMask = std::bitset<32>(mask);
}

void CDebugOption::SetMaskBit(unsigned index, bool on)
{
    if (index < m_debugMask.size()) {
        m_debugMask.set(index, on);
    }
}

void CDebugOption::Reset()
{
    SetMask(0);
    MaxPacketLength = DefaultLength;
    MaxParsedPacketLength = DefaultLength;
    EnableSimulation = 0;
}
