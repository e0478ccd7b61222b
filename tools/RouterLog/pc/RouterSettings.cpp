#include "tools/RouterLog/pc/RouterSettings.h"

#include "console/Console.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cwchar>

namespace routerlog {

namespace {

constexpr REGSAM ReadAndWrite = KEY_READ | KEY_WRITE;

enum class Device { Router, Firmware, Port };

Device KindOf(const std::wstring& key)
{
    const long number = std::wcstol(key.c_str(), nullptr, 10);
    return number == -1 ? Device::Router : number == 0 ? Device::Firmware : Device::Port;
}

/// The file bits that the classes mean on such a device.
std::uint32_t BitsOf(const std::vector<TraceClass>& classes, Device device)
{
    std::uint32_t bits = 0;
    for (const TraceClass each : classes) {
        bool counts = false;
        switch (each) {
        case TraceClass::ReadWrite:
        case TraceClass::Usb:
        case TraceClass::Dispatch: counts = device == Device::Router; break;
        case TraceClass::Firmware: counts = device == Device::Firmware; break;
        case TraceClass::Packets: counts = device == Device::Port; break;
        // Refusals of ports are traced on the router's own device.
        case TraceClass::Pipe: counts = device != Device::Firmware; break;
        case TraceClass::General: counts = true; break;
        case TraceClass::Always: break;
        }
        bits |= counts ? TextOf(each).fileBit : 0;
    }
    return bits;
}

/// A device that the router would make at its start, with its defaults.
void MakeDevice(const win32::RegistryKey& options, const wchar_t* key, const wchar_t* name)
{
    if (win32::RegistryKey::Open(options.Get(), key, KEY_READ)) {
        return;
    }
    const auto device = win32::RegistryKey::Create(options.Get(), key, ReadAndWrite);
    device.WriteString(L"DeviceName", name);
    device.WriteDword(L"DebugMask", 0);
    device.WriteDword(L"MaxPacketLength", 100);
    device.WriteDword(L"MaxParsedPacketLength", 100);
    device.WriteDword(L"EnableSimulation", 0);
}

std::string ChangeMask(const win32::RegistryKey& options, const std::wstring& key, std::uint32_t bits, bool on)
{
    const auto device = win32::RegistryKey::Open(options.Get(), key.c_str(), ReadAndWrite);
    if (!device) {
        return "device " + console::Utf8(key) + ": its settings cannot be written\n";
    }
    const std::uint32_t before = device.ReadDword(L"DebugMask").value_or(0);
    const std::uint32_t after = on ? before | bits : before & ~bits;
    if (after != before) {
        device.WriteDword(L"DebugMask", after);
    }
    std::array<char, 64> masks{};
    std::snprintf(masks.data(), masks.size(), ": mask 0x%08X, was 0x%08X\n",
                  static_cast<unsigned>(device.ReadDword(L"DebugMask").value_or(0)),
                  static_cast<unsigned>(before));
    return "device " + console::Utf8(key) + " (" +
           console::Utf8(device.ReadString(L"DeviceName", 256).value_or(L"Unnamed Device")) + ")" + masks.data();
}

} // namespace

std::optional<std::vector<TraceClass>> ParseClasses(const std::string& text)
{
    std::vector<TraceClass> classes;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(',', at), text.size());
        const std::string word = text.substr(at, end - at);
        bool known = false;
        for (std::size_t i = 1; i < TraceClassCount; ++i) {
            const auto each = static_cast<TraceClass>(i);
            if (word == "all" || word == TextOf(each).key) {
                classes.push_back(each);
                known = true;
            }
        }
        if (!known) {
            return std::nullopt;
        }
        at = end + 1;
    }
    return classes;
}

std::optional<std::string> ChangeMasks(const std::vector<TraceClass>& classes, bool on)
{
    const auto options = win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, settings::DeviceOptions, ReadAndWrite);
    if (!options) {
        return std::nullopt;
    }
    MakeDevice(options, L"-1", L"_FirmwareDebug");
    MakeDevice(options, L"0", L"_FirmwareDownload");
    std::string text;
    for (DWORD index = 0;; ++index) {
        const auto key = options.SubkeyName(index);
        if (!key) {
            return text;
        }
        text += ChangeMask(options, *key, BitsOf(classes, KindOf(*key)), on);
    }
}

} // namespace routerlog
