// The device interfaces of one class that are present now.
#pragma once

#include "win32/Windows.h"

#include <setupapi.h>
#include <cstdint>
#include <optional>
#include <string>

namespace usb {

/// A snapshot, taken at construction; empty when Windows does not give one. One thread.
class DeviceInterfaces
{
public:
    explicit DeviceInterfaces(const GUID& interfaceClass) noexcept
        : m_interfaceClass(interfaceClass),
          m_set(::SetupDiGetClassDevsA(&interfaceClass, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE))
    {
    }
    ~DeviceInterfaces()
    {
        if (m_set != INVALID_HANDLE_VALUE) {
            ::SetupDiDestroyDeviceInfoList(m_set);
        }
    }
    DeviceInterfaces(const DeviceInterfaces&) = delete;
    DeviceInterfaces& operator=(const DeviceInterfaces&) = delete;

    /// How many there are, at most 255. An interface that Windows fails to tell of is stepped over.
    std::uint8_t Count() const noexcept;

    /// The path to open the one at `index` by; none when there is no such interface.
    std::optional<std::string> Path(DWORD index) const;

private:
    bool Find(DWORD index, SP_DEVICE_INTERFACE_DATA& found) const noexcept;

    const GUID m_interfaceClass;
    const HDEVINFO m_set; // INVALID_HANDLE_VALUE: none
};

} // namespace usb
