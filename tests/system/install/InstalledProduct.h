// What the tests of the installer share: a PC on which the product is not installed, before and after each.
#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/TestSupport.h"
#include "tests/system/install/Installer.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>

inline const std::wstring SettingsRoot = L"Software\\Morvane Biosystems";
inline const std::wstring SettingsKey = SettingsRoot + L"\\Devices\\MorvanePortRouter";
/// Where Windows counts the products that use a component.
inline const std::wstring InstallerComponents =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Installer\\UserData\\S-1-5-18\\Components";

class InstalledProduct : public testing::Test
{
protected:
    InstalledProduct();
    /// Removes what the test left: product, settings, folder and registrations.
    ~InstalledProduct() override;

    /// The PC without the product, as it was before the test.
    const Pc& Before() const noexcept { return m_before; }

    DWORD Install(const std::filesystem::path& package, const std::wstring& properties = L"");
    DWORD Remove(const std::filesystem::path& package);

private:
    Pc m_before;
    std::optional<std::filesystem::path> m_installed;
};

/// The build's simulator, which the installed router finds when it simulates USB; the installed one would be in
/// use.
class SimulatedInstrument
{
public:
    SimulatedInstrument();

    /// Whether the router can find it, waited for.
    bool IsServed() const { return support::WaitFor(m_served.Get()); }

private:
    std::wstring m_ready = support::UniqueName(L"Ready");
    win32::KernelHandle m_served;
    support::ChildProcess m_process;
};

std::filesystem::path Program(const wchar_t* name);
std::optional<std::uint32_t> Setting(const wchar_t* name);
/// The product code in the package's table of properties.
std::wstring ProductCode(const std::filesystem::path& package);
/// The keys that count the settings' components. What stays stays counted; Wine counts it also when it was not
/// given.
std::set<std::wstring> KeptComponents(const std::filesystem::path& package);
/// Whether Windows knows the package's product as installed.
bool IsInstalled(const std::filesystem::path& package);
