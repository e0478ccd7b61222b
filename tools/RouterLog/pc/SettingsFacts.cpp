// The router's settings in the registry.
#include "console/Console.h"
#include "tools/RouterLog/pc/GatherFacts.h"
#include "tools/RouterLog/pc/RouterSettings.h"

namespace routerlog {

namespace {

constexpr std::size_t LongestName = 256;

void ReadDevices(const win32::RegistryKey& options, PcFacts& facts)
{
    for (DWORD index = 0;; ++index) {
        const auto name = options.SubkeyName(index);
        if (!name) {
            return;
        }
        const auto device = win32::RegistryKey::Open(options.Get(), name->c_str(), KEY_READ);
        if (device) {
            facts.devices.push_back({console::Utf8(*name),
                                     console::Utf8(device.ReadString(L"DeviceName", LongestName).value_or(L"")),
                                     device.ReadDword(L"DebugMask").value_or(0)});
        }
    }
}

void ReadProducts(PcFacts& facts)
{
    const auto products = win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, settings::Products, KEY_READ);
    for (DWORD index = 0; products; ++index) {
        const auto name = products.SubkeyName(index);
        if (!name) {
            return;
        }
        const auto product = win32::RegistryKey::Open(products.Get(), name->c_str(), KEY_READ);
        facts.products.push_back(product ? product.ReadDword(L"ProductID").value_or(0) : 0);
    }
}

} // namespace

void GatherSettings(PcFacts& facts)
{
    win32::RegistryKey options;
    const LSTATUS status =
        win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, settings::DeviceOptions, KEY_READ, options);
    facts.settingsExist = status != ERROR_FILE_NOT_FOUND;
    facts.settingsReadable = static_cast<bool>(options);
    facts.settingsWritable = static_cast<bool>(
        win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, settings::DeviceOptions, KEY_READ | KEY_WRITE));
    if (!options) {
        return;
    }
    facts.logLimit = options.ReadDword(settings::LogLimit);
    facts.logLimitHasWrongType = !facts.logLimit && ::RegQueryValueExW(options.Get(), settings::LogLimit, nullptr,
                                                                       nullptr, nullptr, nullptr) == ERROR_SUCCESS;
    facts.appendLog = options.ReadDword(L"AppendLogFile");
    facts.simulate = options.ReadDword(L"SimulateUSB").value_or(0);
    facts.flushLimitMs = options.ReadDword(L"FlushLimit(ms)").value_or(0);
    facts.restrictPipes = options.ReadDword(L"RestrictPipes").value_or(0);
    ReadDevices(options, facts);
    ReadProducts(facts);
}

} // namespace routerlog
