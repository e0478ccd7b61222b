#include "diag/CDebugOption.h"

#include "win32/RegistryKey.h"

#include <array>
#include <cwchar>

bool CDebugOption::Persist(HKEY parentKey, bool save)
{
    constexpr std::size_t nameCapacity = 256; // characters, with the terminator
    std::array<wchar_t, 12> subkey{};
    ::_itow_s(DeviceNumber, subkey.data(), subkey.size(), 10);
    const win32::RegistryKey key = save
                                     ? win32::RegistryKey::Create(parentKey, subkey.data(), KEY_READ | KEY_WRITE)
                                     : win32::RegistryKey::Open(parentKey, subkey.data(), KEY_READ);
    if (!key) {
        return false;
    }
    if (save) {
        key.WriteString(L"DeviceName", DeviceName);
        key.WriteDword(L"DebugMask", GetMask());
        key.WriteDword(L"MaxPacketLength", MaxPacketLength);
        key.WriteDword(L"MaxParsedPacketLength", MaxParsedPacketLength);
        key.WriteDword(L"EnableSimulation", EnableSimulation);
    } else {
        DeviceName = key.ReadString(L"DeviceName", nameCapacity).value_or(DeviceName);
        SetMask(key.ReadDword(L"DebugMask").value_or(0));
        MaxPacketLength = key.ReadDword(L"MaxPacketLength").value_or(MaxPacketLength);
        MaxParsedPacketLength = key.ReadDword(L"MaxParsedPacketLength").value_or(MaxParsedPacketLength);
        EnableSimulation = key.ReadDword(L"EnableSimulation").value_or(EnableSimulation);
    }
    return true;
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
