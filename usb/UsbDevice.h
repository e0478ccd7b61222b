// The instrument as a USB device: finds the device interfaces of one class, opens one, reads what it is.
#pragma once

#include "usb/CCyControlEndPoint.h"
#include "usb/CallLimits.h"
#include "usb/ConfigurationRecord.h"
#include "usb/Descriptors.h"
#include "usb/DeviceNotification.h"
#include "win32/Handle.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

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

    std::uint16_t VendorId() const noexcept { return m_descriptor.vendorId; }
    std::uint16_t ProductId() const noexcept { return m_descriptor.productId; }
    const usb::DeviceDescriptor& Descriptor() const noexcept { return m_descriptor; }
    const wchar_t* Manufacturer() const noexcept { return m_manufacturer.data(); }
    const wchar_t* Product() const noexcept { return m_product.data(); }
    const wchar_t* SerialNumber() const noexcept { return m_serialNumber.data(); }
    const char* FriendlyName() const noexcept { return m_friendlyName.data(); }

    /// Of the configurations that were read, which is at most two.
    std::size_t ConfigurationCount() const noexcept { return m_configurations.size(); }
    const usb::ConfigurationRecord& Configuration(std::size_t i) const { return *m_configurations[i]; }
    std::uint8_t SelectedConfiguration() const noexcept { return m_configuration; }
    /// As the driver told; -1 when it failed to.
    int AlternateSetting() const noexcept { return m_alternateSetting; }

    std::uint8_t Address() const noexcept { return m_address; }
    std::uint32_t DriverVersion() const noexcept { return m_driverVersion; }
    std::uint32_t StackVersion() const noexcept { return m_stackVersion; }
    bool IsHighSpeed() const noexcept { return m_highSpeed; }
    /// Bytes that the driver returned to the last synchronous call.
    std::uint32_t LastByteCount() const noexcept { return m_lastByteCount; }
    /// Requests that a driver keeps although they were cancelled: I/O controls of this device and what earlier
    /// connections have left, as of the last look.
    std::size_t KeptByDrivers() const noexcept { return m_kept.Count(); }

private:
    static constexpr std::size_t MaximumConfigurations = 2;
    static constexpr std::size_t TextRoom = 256; // with the terminating zero
    using WideText = std::array<wchar_t, TextRoom>;
    using NarrowText = std::array<char, TextRoom>;

    bool OpenPath(std::uint8_t index);
    void ResetState() noexcept;
    void LetGoOfTransfers() noexcept;
    template <class Function>
    void ForEachEndpoint(Function&& function);

    void ReadIdentity();
    std::optional<std::uint16_t> ReadLanguage();
    void ReadText(std::uint8_t index, std::uint16_t language, WideText& text);
    void ReadDriverFacts();
    std::uint32_t ReadNumber(std::uint32_t code);
    void ReadConfigurations();
    std::vector<std::uint8_t> ReadString(std::uint8_t index, std::uint16_t language);
    void SelectInterface();
    bool ReadDescriptor(usb::DescriptorType type, std::uint8_t index, std::uint16_t language,
                        std::span<std::uint8_t> bytes);
    bool IoControl(std::uint32_t code, std::span<std::uint8_t> buffer);

    const GUID m_interfaceClass;
    const HWND m_window;
    usb::CallLimits& m_limits;
    usb::AbandonedTransfers m_kept; // this device's I/O controls, and what earlier connections have left
    win32::FileHandle m_device;
    std::string m_path;
    std::uint8_t m_index = 0;
    std::uint8_t m_count = 0;
    std::unique_ptr<CCyControlEndPoint> m_control;
    std::vector<CCyUSBEndPoint*> m_endpoints; // borrowed from m_control and m_configurations
    usb::DeviceDescriptor m_descriptor;
    WideText m_manufacturer{};
    WideText m_product{};
    WideText m_serialNumber{};
    NarrowText m_friendlyName{};
    std::vector<std::unique_ptr<usb::ConfigurationRecord>> m_configurations;
    std::uint8_t m_configuration = 0; // the selected one's place in m_configurations
    int m_alternateSetting = 0;
    std::uint8_t m_address = 0;
    std::uint32_t m_driverVersion = 0;
    std::uint32_t m_stackVersion = 0;
    bool m_highSpeed = false;
    std::uint32_t m_lastByteCount = 0;
    usb::DeviceNotification m_interfaceNotification; // only with a window
    usb::DeviceNotification m_handleNotification;    // only with a window, while open
};
