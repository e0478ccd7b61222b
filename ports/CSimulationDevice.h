// The base of every port pipe: its address and its own, unused, notion of simulation.
#pragma once

#include <cstdint>

/// Immutable after construction.
class CSimulationDevice
{
public:
    CSimulationDevice(bool simulation, std::int32_t deviceType, std::int32_t port) noexcept
        : m_Simulation(simulation), m_BaseDeviceType(deviceType), m_BasePort(port)
    {
    }
    virtual ~CSimulationDevice() = default;
    CSimulationDevice(const CSimulationDevice&) = delete;
    CSimulationDevice& operator=(const CSimulationDevice&) = delete;

    bool IsSimulation() const noexcept { return m_Simulation; }

    /// Does nothing: a per-port simulation has no other end in this version. Meant to be so.
    bool SendToSimulation(const std::uint8_t* /*data*/, std::uint32_t /*length*/) noexcept { return false; }

private:
    bool m_Simulation; // false for every port pipe; the branches that test it stay
    // Set by the constructor. No code reads them, which clang reports as unused fields.
    [[maybe_unused]] std::int32_t m_BaseDeviceType;
    [[maybe_unused]] std::int32_t m_BasePort;
};
