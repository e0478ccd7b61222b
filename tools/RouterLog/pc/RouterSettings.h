// The keys of the router's settings, and the trace masks in them.
#pragma once

#include "tools/RouterLog/log/TraceFormats.h"
#include "win32/RegistryKey.h"

#include <optional>
#include <string>
#include <vector>

namespace routerlog {

namespace settings {
inline constexpr wchar_t Root[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter";
inline constexpr wchar_t DeviceOptions[] =
    L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\DeviceOptions";
inline constexpr wchar_t Products[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\Products";
inline constexpr wchar_t LogLimit[] = L"LogFileLimt(MB)"; // spelled so
} // namespace settings

/// "usb,firmware" as classes; none when a word is no class. "all" means all.
std::optional<std::vector<TraceClass>> ParseClasses(const std::string& text);

/// Sets or clears the classes' file bits in every device's mask, as the boxes "Log" of the Debug Options dialog
/// do; the router's own two devices get their settings when they have none yet. What was done, a line for each
/// device; none when the settings cannot be written. A router takes them at its next start.
std::optional<std::string> ChangeMasks(const std::vector<TraceClass>& classes, bool on);

} // namespace routerlog
