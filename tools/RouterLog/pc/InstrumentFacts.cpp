// The instrument, its driver, the simulator, and pipe names.
#include "console/Console.h"
#include "tools/RouterLog/pc/GatherFacts.h"
#include "usb/UsbDevice.h"
#include "win32/RegistryKey.h"

#include <cwchar>

namespace routerlog {

namespace {

// The vendor driver's device interface class.
constexpr GUID DeviceInterface = {0x4E7B2C19, 0x8D35, 0x4A60, {0xB1, 0xF2, 0x7C, 0x9E, 0x05, 0xD3, 0xA6, 0x48}};
constexpr const wchar_t* InterfaceClass =
    L"SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\{4e7b2c19-8d35-4a60-b1f2-7c9e05d3a648}";
constexpr const wchar_t* SimulatorPipe = L"UsbPipeSimulator";

/// Looks at the list of all pipes: to open one would take it from its client.
bool PipeExists(const std::wstring& name)
{
    WIN32_FIND_DATAW found{};
    const HANDLE search = ::FindFirstFileW(L"\\\\.\\pipe\\*", &found);
    if (search == INVALID_HANDLE_VALUE) {
        return ::WaitNamedPipeW((L"\\\\.\\pipe\\" + name).c_str(), 1) || ::GetLastError() == ERROR_SEM_TIMEOUT;
    }
    bool exists = false;
    do {
        exists = ::_wcsicmp(found.cFileName, name.c_str()) == 0;
    } while (!exists && ::FindNextFileW(search, &found));
    ::FindClose(search);
    return exists;
}

} // namespace

void GatherInstrument(PcFacts& facts)
{
    facts.driverPresent =
        static_cast<bool>(win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, InterfaceClass, KEY_READ));
    facts.simulatorPipe = PipeExists(SimulatorPipe);
    UsbDevice device(nullptr, DeviceInterface, false);
    const std::uint8_t count = device.DeviceCount();
    for (std::uint8_t index = 0; index < count; ++index) {
        UsbInstrument instrument;
        // A running router has the instrument open, and only one process can.
        if (facts.routers.empty() && device.Open(index)) {
            instrument = {device.VendorId(), device.ProductId(), true};
            device.Close();
        }
        facts.instruments.push_back(instrument);
    }
}

PcFacts GatherFacts(const std::vector<std::string>& pipes)
{
    PcFacts facts;
    GatherRegistration(facts);
    GatherSettings(facts);
    GatherPrograms(facts);
    GatherFiles(facts);
    GatherInstrument(facts);
    for (const std::string& pipe : pipes) {
        if (PipeExists(console::Wide(pipe))) {
            facts.takenPipes.push_back(pipe);
        }
    }
    return facts;
}

} // namespace routerlog
