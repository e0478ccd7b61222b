#include "usb/ConfigurationRecord.h"

#include "usb/CCyBulkEndPoint.h"
#include "usb/CCyControlEndPoint.h"
#include "usb/CCyInterruptEndPoint.h"
#include "usb/CCyIsocEndPoint.h"

#include <utility>

namespace usb {

namespace {

std::unique_ptr<CCyUSBEndPoint> MakeEndpoint(HANDLE device, const EndpointDescriptor& descriptor,
                                             CallLimits& limits)
{
    switch (descriptor.Kind()) {
    case TransferType::Isochronous: return std::make_unique<CCyIsocEndPoint>(device, descriptor, limits);
    case TransferType::Bulk: return std::make_unique<CCyBulkEndPoint>(device, descriptor, limits);
    case TransferType::Interrupt: return std::make_unique<CCyInterruptEndPoint>(device, descriptor, limits);
    case TransferType::Control: break;
    }
    return std::make_unique<CCyControlEndPoint>(device, descriptor, limits);
}

} // namespace

ConfigurationRecord::ConfigurationRecord(HANDLE device, std::vector<std::uint8_t> raw,
                                         ConfigurationDescription parsed, CallLimits& limits)
    : m_raw(std::move(raw)), m_parsed(std::move(parsed))
{
    for (const InterfaceDescription& described : m_parsed.interfaces) {
        for (const EndpointDescriptor& endpoint : described.endpoints) {
            m_endpoints.push_back(MakeEndpoint(device, endpoint, limits));
        }
    }
}

std::vector<CCyUSBEndPoint*> ConfigurationRecord::EndpointsOf(const InterfaceDescription& described) const
{
    std::size_t next = 0;
    for (const InterfaceDescription* before = m_parsed.interfaces.data(); before != &described; ++before) {
        next += before->endpoints.size();
    }
    std::vector<CCyUSBEndPoint*> slots(described.announcedEndpoints, nullptr);
    for (std::size_t i = 0; i < described.endpoints.size(); ++i) {
        slots[i] = m_endpoints[next + i].get();
    }
    return slots;
}

} // namespace usb
