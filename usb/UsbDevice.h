// The instrument as a USB device: finds the device interfaces of one class, opens one, reads what it is.
#pragma once

#include "usb/Descriptors.h"
#include "usb/DeviceControl.h"
#include "usb/EndPointKinds.h"
#include "win32/Handle.h"

#include <dbt.h>
#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace usb {

/// One configuration of the open device and the endpoint objects of all its interfaces.
struct ConfigurationRecord
{
    std::vector<std::uint8_t> raw; // the descriptor as read
    ConfigurationDescription description;
    std::vector<std::unique_ptr<CCyUSBEndPoint>> endpoints; // interface by interface, in order
};

/// What the device and its driver tell; zero or empty where they do not. Texts end with a zero.
struct DeviceIdentity
{
    static constexpr std::size_t TextRoom = 256;

    DeviceDescriptor descriptor;
    std::array<wchar_t, TextRoom> manufacturer{};
    std::array<wchar_t, TextRoom> product{};
    std::array<wchar_t, TextRoom> serialNumber{};
    std::array<char, TextRoom> friendlyName{};
    std::uint8_t address = 0;
    std::uint32_t driverVersion = 0;
    std::uint32_t stackVersion = 0;
    bool highSpeed = false;
};

/// A window's registration for the coming and going of devices.
struct NotificationPolicy
{
    static HDEVNOTIFY None() noexcept { return nullptr; }
    static bool Close(HDEVNOTIFY registration) noexcept
    {
        return ::UnregisterDeviceNotification(registration) != FALSE;
    }
};
using DeviceNotification = win32::UniqueHandle<NotificationPolicy>;

} // namespace usb

/// Closed, or open after an Open that said true. One thread at a time (see CCyUSBEndPoint for the endpoints).
class UsbDevice
{
public:
    /// `window`: gets device notifications, null for none. `open`: tries Open(0), whose outcome IsOpen tells; what
    /// that throws is not passed on. `limits`: of every call on the device and its endpoints; borrowed.
    UsbDevice(HWND window, const GUID& interfaceClass, bool open,
              usb::CallLimits& limits = usb::CallLimits::WithoutStop());
    /// Closes and ends the notifications. What Close and Unregister throw stays inside: a destructor runs during
    /// other exceptions too, where a second one would end the process.
    ~UsbDevice();
    UsbDevice(const UsbDevice&) = delete;
    UsbDevice& operator=(const UsbDevice&) = delete;

    /// Counts the devices present now, at most 255.
    std::uint8_t DeviceCount();

    /// Closes what is open and opens the device at `index` of the present ones. False, and closed, when there is
    /// no such device, it cannot be opened, it tells no configuration, or drivers keep too many requests of
    /// earlier connections (AbandonedTransfers::Limit). Throws what Close throws.
    bool Open(std::uint8_t index);

    /// Ends and frees everything of the open device, its endpoints too. Waits for requests that were given up as
    /// long as the limits allow; what the driver keeps longer is kept, and freed once it has completed. Throws
    /// std::runtime_error with "Failed to close the handle notification handle." or "Failed to close the device
    /// handle." after it has done so.
    void Close();

    /// Ends the notifications of devices that come and go. Throws std::runtime_error with "Failed to close the
    /// device notification handle.". Harmless when there are none.
    void Unregister();

    /// Resets the port that the device hangs on. A closed device ignores it.
    void ResetParentPort() noexcept;

    bool IsOpen() const noexcept { return static_cast<bool>(m_device); }
    HANDLE Handle() const noexcept { return m_device.Get(); }
    const std::string& Path() const noexcept { return m_path; }
    std::uint8_t Index() const noexcept { return m_index; }

    /// The current interface's endpoints, the control endpoint at 0; none while closed. `slot` must be below the
    /// count. A slot is null when the device announced more endpoints than it described. Valid until Close.
    std::size_t EndpointCount() const noexcept { return m_endpoints.size(); }
    CCyUSBEndPoint* Endpoint(std::size_t slot) const noexcept { return m_endpoints[slot]; }

    const usb::DeviceIdentity& Identity() const noexcept { return m_identity; }
    std::uint16_t VendorId() const noexcept { return m_identity.descriptor.vendorId; }
    std::uint16_t ProductId() const noexcept { return m_identity.descriptor.productId; }

    /// Of the configurations that were read, which is at most two.
    std::size_t ConfigurationCount() const noexcept { return m_configurations.size(); }
    const usb::ConfigurationRecord& Configuration(std::size_t i) const { return *m_configurations[i]; }
    std::uint8_t SelectedConfiguration() const noexcept { return m_configuration; }
    /// As the driver told; -1 when it failed to.
    int AlternateSetting() const noexcept { return m_alternateSetting; }

    /// Bytes that the driver returned to the last synchronous call.
    std::uint32_t LastByteCount() const noexcept { return m_lastByteCount; }
    /// Requests that a driver keeps although they were cancelled: I/O controls of this device and what earlier
    /// connections have left, as of the last look.
    std::size_t KeptByDrivers() const noexcept { return m_kept.Count(); }

private:
    bool OpenPath(std::uint8_t index);
    void LetGoOfTransfers() noexcept;
    template <class Function>
    void ForEachEndpoint(Function&& function);

    void ReadIdentity();
    std::vector<std::uint8_t> ReadString(std::uint8_t index, std::uint16_t language);
    void ReadText(std::uint8_t index, std::uint16_t language, std::span<wchar_t> text);
    std::uint32_t ReadNumber(std::uint32_t code);
    void ReadConfigurations();
    void SelectInterface();
    bool ReadDescriptor(usb::DescriptorType type, std::uint8_t index, std::uint16_t language,
                        std::span<std::uint8_t> bytes);
    bool IoControl(std::uint32_t code, std::span<std::uint8_t> buffer) noexcept;

    const GUID m_interfaceClass;
    const HWND m_window;
    usb::CallLimits& m_limits;
    usb::AbandonedTransfers m_kept; // this device's I/O controls, and what earlier connections have left
    win32::FileHandle m_device;
    std::string m_path;
    std::uint8_t m_index = 0;
    std::uint8_t m_count = 0; // as last counted
    std::unique_ptr<CCyControlEndPoint> m_control;
    std::vector<CCyUSBEndPoint*> m_endpoints; // borrowed from m_control and m_configurations
    usb::DeviceIdentity m_identity;
    std::vector<std::unique_ptr<usb::ConfigurationRecord>> m_configurations;
    std::uint8_t m_configuration = 0; // the selected one's place in m_configurations
    int m_alternateSetting = 0;
    std::uint32_t m_lastByteCount = 0;
    usb::DeviceNotification m_interfaceNotification; // only with a window
    usb::DeviceNotification m_handleNotification;    // only with a window, while open
};
