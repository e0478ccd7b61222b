// Where and how the router is registered.
#include "console/Console.h"
#include "tools/RouterLog/pc/GatherFacts.h"
#include "win32/RegistryKey.h"

#include <Version.h>

#include <array>
#include <filesystem>

#include <winver.h>

namespace routerlog {

namespace {

constexpr std::size_t LongestPath = 1'024;
constexpr const wchar_t* Classes = L"Software\\Classes";
constexpr const wchar_t* Class = L"CLSID\\{7A1C5E20-3B94-4F0D-9E61-2C8B7D4F1A93}";
constexpr const wchar_t* ProgIdClass = L"MorvanePortRouter.MorvaneUSBRouter.1\\CLSID";
constexpr const wchar_t* TypeLibrary = L"TypeLib\\{B58E0F3C-61D2-4A7E-8C19-5D0A3E6B9F24}\\1.0";
constexpr const wchar_t* AppId = L"AppID\\{2D9F6A71-C04E-4B38-A5E2-91F7B3C8D605}";

std::wstring DefaultValue(const win32::RegistryKey& parent, const std::wstring& name, REGSAM view)
{
    const auto key = win32::RegistryKey::Open(parent.Get(), name.c_str(), KEY_READ | view);
    return key ? key.ReadString(nullptr, LongestPath).value_or(std::wstring()) : std::wstring();
}

/// The program of a LocalServer32 value: what stands in quotes, or all of it.
std::wstring ProgramOf(const std::wstring& server)
{
    return server.starts_with(L'"') ? server.substr(1, server.find(L'"', 1) - 1) : server;
}

std::string VersionOf(const std::wstring& path)
{
    DWORD unused = 0;
    std::vector<std::uint8_t> block(::GetFileVersionInfoSizeW(path.c_str(), &unused));
    VS_FIXEDFILEINFO* info = nullptr;
    UINT length = 0;
    if (block.empty() || !::GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) ||
        !::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &length) || info == nullptr)
    {
        return {};
    }
    std::string version;
    for (const DWORD part : {info->dwFileVersionMS, info->dwFileVersionLS}) {
        version +=
            (version.empty() ? "" : ".") + std::to_string(HIWORD(part)) + "." + std::to_string(LOWORD(part));
    }
    return version;
}

Registration Look(HKEY hive, REGSAM view)
{
    Registration found;
    found.perUser = hive == HKEY_CURRENT_USER;
    found.view32 = view == KEY_WOW64_32KEY;
    const auto classes = win32::RegistryKey::Open(hive, Classes, KEY_READ | view);
    if (!classes) {
        return found;
    }
    const std::wstring server = ProgramOf(DefaultValue(classes, std::wstring(Class) + L"\\LocalServer32", view));
    found.server = console::Utf8(server);
    if (!server.empty()) {
        std::error_code ignored;
        found.serverExists = std::filesystem::is_regular_file(server, ignored);
        found.version = VersionOf(server);
    }
    return found;
}

} // namespace

void GatherRegistration(PcFacts& facts)
{
    for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
        for (const REGSAM view : {REGSAM{KEY_WOW64_64KEY}, REGSAM{KEY_WOW64_32KEY}}) {
            Registration found = Look(hive, view);
            // The rest is looked for as COM does, the user's before the machine's.
            const auto merged = win32::RegistryKey::Open(HKEY_CLASSES_ROOT, L"", KEY_READ | view);
            if (merged && !found.server.empty()) {
                found.progIdClass = console::Utf8(DefaultValue(merged, ProgIdClass, view));
                found.typeLibrary =
                    static_cast<bool>(win32::RegistryKey::Open(merged.Get(), TypeLibrary, KEY_READ | view));
                found.appId = static_cast<bool>(win32::RegistryKey::Open(merged.Get(), AppId, KEY_READ | view));
            }
            facts.registrations.push_back(std::move(found));
        }
    }
}

std::string OwnVersion()
{
    return MORVANE_VERSION_TEXT ".0";
}

} // namespace routerlog
