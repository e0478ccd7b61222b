#include "host/ConfigurationStore.h"

#include "win32/RegistryKey.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace {

constexpr wchar_t DeviceOptionsKey[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\DeviceOptions";
constexpr wchar_t ProductsKey[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\Products";

// A standard user may read below HKEY_LOCAL_MACHINE, but a key opened for writing is refused as a whole ("Registry
// Key Security and Access Rights"). So what is only read is opened for reading.
constexpr REGSAM WriteAccess = KEY_READ | KEY_WRITE;

// Spelled like this in every installation.
constexpr wchar_t LogFileLimitValue[] = L"LogFileLimt(MB)";
constexpr wchar_t AppendLogFileValue[] = L"AppendLogFile";
constexpr wchar_t SimulateUsbValue[] = L"SimulateUSB";

constexpr std::uint32_t DefaultBootloaderVersion = 2;

constexpr std::uint16_t SupportedVendor = 0x1E4F;
constexpr std::array<std::uint16_t, 7> BuiltInProducts{0x0010, 0x0100, 0x0101, 0x0200, 0x0300, 0x0400, 0x0500};

} // namespace

void ConfigurationStore::LoadConfiguration()
{
    LoadProducts();
    LoadDeviceOptions();
}

void ConfigurationStore::LoadProducts()
{
    const auto key = win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, ProductsKey, KEY_READ);
    if (!key) {
        return;
    }
    for (DWORD index = 0; const auto name = key.SubkeyName(index); ++index) {
        const auto product = win32::RegistryKey::Open(key.Get(), name->c_str(), KEY_READ);
        if (product) {
            const auto id = static_cast<std::uint16_t>(product.ReadDword(L"ProductID").value_or(0));
            m_products.emplace(id, product.ReadDword(L"BootloaderVersion").value_or(DefaultBootloaderVersion));
        }
    }
}

void ConfigurationStore::LoadDeviceOptions()
{
    const auto key = win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, DeviceOptionsKey, KEY_READ);
    if (!key) {
        return;
    }
    const CDebugOptionsLock lock(m_frontEnd.Gate());
    m_logFileLimit = key.ReadDword(LogFileLimitValue).value_or(m_logFileLimit);
    m_appendLogFile = key.ReadDword(AppendLogFileValue).value_or(m_appendLogFile);
    m_simulateUsb = key.ReadDword(SimulateUsbValue).value_or(m_simulateUsb);
    m_portOptions = {.flushLimitMs = key.ReadDword(L"FlushLimit(ms)").value_or(0),
                     .restrictPipe = key.ReadDword(L"RestrictPipes").value_or(0) != 0};
    m_options.clear();
    for (DWORD index = 0; const auto name = key.SubkeyName(index); ++index) {
        // A name that is no number means device 0, and its values are then looked for below "0".
        CDebugOption option(::_wtoi(name->c_str()));
        option.Persist(key.Get(), false);
        m_options.emplace(option.DeviceNumber, option);
    }
    m_frontEnd.Publish(m_options);
}

std::int32_t ConfigurationStore::GetBootloaderVersion(std::uint16_t productId) const noexcept
{
    const auto found = m_products.find(productId);
    return static_cast<std::int32_t>(found != m_products.end() ? found->second : DefaultBootloaderVersion);
}

bool ConfigurationStore::IsSupportedProduct(std::uint16_t vendorId, std::uint16_t productId) const noexcept
{
    if (vendorId != SupportedVendor) {
        return false;
    }
    if (!m_products.empty()) {
        return m_products.contains(productId);
    }
    return std::find(BuiltInProducts.begin(), BuiltInProducts.end(), productId) != BuiltInProducts.end();
}

void ConfigurationStore::RegisterDeviceName(const std::wstring& name, std::int32_t device)
{
    const auto key = win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, DeviceOptionsKey, WriteAccess);
    if (!key || m_options.contains(device)) {
        return;
    }
    CDebugOption option(device);
    option.DeviceName = name;
    option.Persist(key.Get(), true);

    const CDebugOptionsLock lock(m_frontEnd.Gate());
    m_options.emplace(device, option);
    m_frontEnd.Publish(m_options);
}

void ConfigurationStore::Apply(std::uint32_t limit, bool append, bool simulate, const DebugOptionsMap& options)
{
    m_logFileLimit = limit;
    m_appendLogFile = append ? 1 : 0;
    m_simulateUsb = simulate ? 1 : 0;
    if (!options.empty()) {
        DebugOptionsMap copy = options;
        const CDebugOptionsLock lock(m_frontEnd.Gate());
        m_options.swap(copy);
        m_frontEnd.Publish(m_options);
    }
    const auto key = win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, DeviceOptionsKey, WriteAccess);
    if (!key) {
        return;
    }
    key.WriteDword(LogFileLimitValue, m_logFileLimit);
    key.WriteDword(AppendLogFileValue, m_appendLogFile);
    key.WriteDword(SimulateUsbValue, m_simulateUsb);
    for (auto& [device, option] : m_options) {
        option.Persist(key.Get(), true);
    }
}

std::uint32_t ConfigurationStore::CombinedMask() const
{
    std::uint32_t mask = 0;
    for (const auto& [device, option] : m_options) {
        mask |= option.GetMask();
    }
    return mask;
}
