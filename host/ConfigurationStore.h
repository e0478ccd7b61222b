// The settings in the registry: module values, products and the debug options of the devices.
//
// The main thread reads them at start-up and changes them; the product table does not change once the transport is
// there, so the transport's threads look products up without a lock. Registry failures are silent: the defaults
// stay, or nothing is written.
#pragma once

#include "diag/CDebugOption.h"
#include "host/TraceFrontEnd.h"
#include "ports/PortSettings.h"
#include "transport/TransportHost.h"

#include <cstdint>
#include <map>
#include <string>

class ConfigurationStore final : public IProducts, public IDeviceNames
{
public:
    static constexpr wchar_t LogFileName[] = L"MorvanePortRouter.log";

    /// `frontEnd` is told of every change of the options; borrowed.
    explicit ConfigurationStore(TraceFrontEnd& frontEnd) noexcept : m_frontEnd(frontEnd) {}
    ConfigurationStore(const ConfigurationStore&) = delete;
    ConfigurationStore& operator=(const ConfigurationStore&) = delete;

    /// Reads everything, once. Main thread, before the transport exists. Throws std::bad_alloc.
    void LoadConfiguration();

    // IProducts
    std::int32_t GetBootloaderVersion(std::uint16_t productId) const noexcept override;
    /// By the table; by the built-in list when the table is empty.
    bool IsSupportedProduct(std::uint16_t vendorId, std::uint16_t productId) const noexcept override;

    /// Gives a device that has no record one of that name, and saves it; nothing when settings may not be written.
    /// Main thread. Throws std::bad_alloc.
    void RegisterDeviceName(const std::wstring& name, std::int32_t device) override;

    /// Takes the settings (the records unless there are none) and saves them. What cannot be written holds until
    /// the process ends. Main thread. Throws std::bad_alloc.
    void Apply(std::uint32_t limit, bool append, bool simulate, const DebugOptionsMap& options);

    // Main thread.
    const DebugOptionsMap& DeviceOptions() const noexcept { return m_options; }
    std::uint32_t LogFileLimit() const noexcept { return m_logFileLimit; } // megabytes
    bool AppendLogFile() const noexcept { return m_appendLogFile != 0; }
    bool IsSimulation() const noexcept { return m_simulateUsb != 0; }
    const PortOptions& OptionsOfPorts() const noexcept { return m_portOptions; }
    /// What any device wants to be traced.
    std::uint32_t CombinedMask() const;

private:
    void LoadProducts();
    void LoadDeviceOptions();

    TraceFrontEnd& m_frontEnd;
    std::map<std::uint16_t, std::uint32_t> m_products; // USB product ID to bootloader version

    // The main thread's.
    DebugOptionsMap m_options;
    std::uint32_t m_logFileLimit = 10;
    std::uint32_t m_appendLogFile = 1;
    std::uint32_t m_simulateUsb = 0;
    PortOptions m_portOptions;
};
