#include "usb/UsbDevice.h"

#include "usb/ControlCodes.h"
#include "usb/DeviceInterfaces.h"

#include <stdexcept>

UsbDevice::UsbDevice(HWND window, const GUID& interfaceClass, bool open, usb::CallLimits& limits)
    : m_interfaceClass(interfaceClass), m_window(window), m_limits(limits)
{
    if (m_window != nullptr) {
        DEV_BROADCAST_DEVICEINTERFACE_A filter{};
        filter.dbcc_size = sizeof filter;
        filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
        filter.dbcc_classguid = m_interfaceClass;
        m_interfaceNotification.Reset(
            ::RegisterDeviceNotificationA(m_window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE));
    }
    if (open) {
        try {
            Open(0);
        } catch (...) {
            // Closed, as without a device: a caller that serves one opens it again, and gets the error then.
        }
    }
}

UsbDevice::~UsbDevice()
{
    try {
        Close();
        Unregister();
    } catch (...) {
        // A caller that needs the error calls both first; a destructor cannot report it.
    }
}

std::uint8_t UsbDevice::DeviceCount()
{
    return m_count = usb::DeviceInterfaces(m_interfaceClass).Count();
}

bool UsbDevice::Open(std::uint8_t index)
{
    if (IsOpen()) {
        Close();
    }
    if (!OpenPath(index)) {
        m_index = 0;
        return false;
    }
    m_index = index;
    ReadIdentity();
    ReadConfigurations();
    const usb::EndpointDescriptor zero{.maximumPacket = m_identity.descriptor.maximumPacketSize0};
    m_control = std::make_unique<CCyControlEndPoint>(m_device.Get(), zero, m_limits);
    if (m_configurations.empty()) {
        Close();
        return false;
    }
    SelectInterface();
    if (m_window != nullptr) {
        DEV_BROADCAST_HANDLE filter{};
        filter.dbch_size = sizeof filter;
        filter.dbch_devicetype = DBT_DEVTYP_HANDLE;
        filter.dbch_handle = m_device.Get();
        m_handleNotification.Reset(::RegisterDeviceNotificationA(m_window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE));
    }
    return true;
}

bool UsbDevice::OpenPath(std::uint8_t index)
{
    if (m_kept.IsFull()) {
        return false;
    }
    const usb::DeviceInterfaces interfaces(m_interfaceClass);
    const std::optional<std::string> path = interfaces.Path(index);
    if (!path) {
        return false;
    }
    m_device.Reset(::CreateFileA(path->c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    if (IsOpen()) {
        m_path = *path;
    }
    return IsOpen();
}

template <class Function>
void UsbDevice::ForEachEndpoint(Function&& function)
{
    if (m_control) {
        function(*m_control);
    }
    for (const auto& configuration : m_configurations) {
        for (const auto& endpoint : configuration->endpoints) {
            function(*endpoint);
        }
    }
}

void UsbDevice::Close()
{
    const char* failure = nullptr;
    if (!m_handleNotification.Reset()) {
        failure = "Failed to close the handle notification handle.";
    }
    ForEachEndpoint([&](CCyUSBEndPoint& endpoint) { endpoint.Abandoned().CancelAll(m_device.Get()); });
    if (!m_device.Reset() && failure == nullptr) {
        failure = "Failed to close the device handle.";
    }
    LetGoOfTransfers();
    m_endpoints.clear();
    m_configurations.clear();
    m_control.reset();
    m_path.clear();
    m_index = 0;
    m_count = 0;
    m_identity = {};
    m_alternateSetting = 0;
    if (failure != nullptr) {
        throw std::runtime_error(failure);
    }
}

// Only this connection's are waited for: what earlier ones have left had its time then, and a driver that never
// releases them must not cost each later Close a second.
void UsbDevice::LetGoOfTransfers() noexcept
{
    const ULONGLONG end = ::GetTickCount64() + m_limits.CancelTime();
    ForEachEndpoint([&](CCyUSBEndPoint& endpoint) {
        const ULONGLONG now = ::GetTickCount64();
        endpoint.Abandoned().WaitForAll(end > now ? static_cast<DWORD>(end - now) : 0);
        m_kept.AddAll(endpoint.Abandoned());
    });
    m_kept.ForgetControls();
    m_kept.Sweep();
}

void UsbDevice::Unregister()
{
    if (!m_interfaceNotification.Reset()) {
        throw std::runtime_error("Failed to close the device notification handle.");
    }
}

void UsbDevice::ResetParentPort() noexcept
{
    IoControl(usb::ControlResetParentPort, {});
}

bool UsbDevice::IoControl(std::uint32_t code, std::span<std::uint8_t> buffer) noexcept
{
    DWORD returned = 0;
    const bool worked = usb::DeviceControl(m_device.Get(), code, buffer, returned, m_limits, m_kept);
    m_lastByteCount = returned;
    return worked && returned == buffer.size();
}
