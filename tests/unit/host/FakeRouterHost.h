// The module as the automation objects see it, with a port table and a transport of the test's own.
#pragma once

#include "host/RouterHost.h"
#include "tests/unit/ports/FakeTransport.h"

#include <string>
#include <utility>
#include <vector>

class FakeRouterHost final : public IRouterHost, public IDeviceNames
{
public:
    PortTable& Ports() override { return ports; }
    CCommunicationDriver* Transport() override { return &transport; }
    PortOptions OptionsOfPorts() const override { return portOptions; }
    IDeviceNames& Names() override { return *this; }
    void RegisterDeviceName(const std::wstring& name, std::int32_t device) override
    {
        names.emplace_back(name, device);
        if (namingFails) {
            throw std::bad_alloc();
        }
    }
    void AddServerLock() override { ++locks; }
    void ReleaseServerLock() override { --locks; }

    FakeTransport transport;
    PortTable ports;
    PortOptions portOptions;
    std::vector<std::pair<std::wstring, std::int32_t>> names;
    bool namingFails = false;
    int locks = 0; // of objects
};
