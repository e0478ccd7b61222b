// One configuration of the open device and the endpoint objects of all its interfaces.
#pragma once

#include "usb/CCyUSBEndPoint.h"
#include "usb/Descriptors.h"

#include <memory>
#include <vector>

namespace usb {

class ConfigurationRecord
{
public:
    /// `raw`: the configuration descriptor as read and what was made of it. `device` must stay open as long as the
    /// endpoints are used; `limits` is borrowed by them.
    ConfigurationRecord(HANDLE device, std::vector<std::uint8_t> raw, ConfigurationDescription parsed,
                        CallLimits& limits = CallLimits::WithoutStop());

    const std::vector<std::uint8_t>& Raw() const noexcept { return m_raw; }
    const ConfigurationDescription& Description() const noexcept { return m_parsed; }

    /// The endpoints of one of this configuration's interfaces, as many slots as it announced: a slot without a
    /// descriptor is null.
    std::vector<CCyUSBEndPoint*> EndpointsOf(const InterfaceDescription& described) const;

    /// All endpoint objects, of all interfaces.
    const std::vector<std::unique_ptr<CCyUSBEndPoint>>& Endpoints() const noexcept { return m_endpoints; }

private:
    std::vector<std::uint8_t> m_raw;
    ConfigurationDescription m_parsed;
    std::vector<std::unique_ptr<CCyUSBEndPoint>> m_endpoints; // interface by interface, in order
};

} // namespace usb
