#include "usb/DeviceInterfaces.h"

#include <vector>

namespace usb {

namespace {

// Failures in a row after which an enumeration that never comes to its end is given up.
constexpr unsigned MaximumFailures = 256;
constexpr std::uint8_t MaximumCount = 255;

} // namespace

bool DeviceInterfaces::Find(DWORD index, SP_DEVICE_INTERFACE_DATA& found) const noexcept
{
    found = SP_DEVICE_INTERFACE_DATA{};
    found.cbSize = sizeof found;
    return ::SetupDiEnumDeviceInterfaces(m_set, nullptr, &m_interfaceClass, index, &found) != FALSE;
}

std::uint8_t DeviceInterfaces::Count() const noexcept
{
    if (m_set == INVALID_HANDLE_VALUE) {
        return 0;
    }
    std::uint8_t count = 0;
    unsigned failures = 0;
    SP_DEVICE_INTERFACE_DATA found;
    for (DWORD index = 0; count < MaximumCount && failures < MaximumFailures; ++index) {
        if (Find(index, found)) {
            ++count;
            failures = 0;
        } else if (::GetLastError() == ERROR_NO_MORE_ITEMS) {
            break;
        } else {
            ++failures;
        }
    }
    return count;
}

std::optional<std::string> DeviceInterfaces::Path(DWORD index) const
{
    SP_DEVICE_INTERFACE_DATA found;
    if (m_set == INVALID_HANDLE_VALUE || !Find(index, found)) {
        return std::nullopt;
    }
    DWORD size = 0;
    ::SetupDiGetDeviceInterfaceDetailA(m_set, &found, nullptr, 0, &size, nullptr);
    if (size < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A)) {
        return std::nullopt;
    }
    // Room for one zero more than Windows asks for, so that the path ends whatever was filled in.
    std::vector<DWORD> room(size / sizeof(DWORD) + 2);
    auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(room.data());
    detail->cbSize = sizeof *detail;
    if (::SetupDiGetDeviceInterfaceDetailA(m_set, &found, detail, size, nullptr, nullptr) == FALSE) {
        return std::nullopt;
    }
    return std::string(detail->DevicePath);
}

} // namespace usb
