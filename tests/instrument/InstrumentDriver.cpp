#include "tests/instrument/InstrumentDriver.h"

#include "tests/instrument/InstrumentProtocol.h"
#include "tests/instrument/RemoteCall.h"
#include "win32/ModulePath.h"

#include <cfgmgr32.h>
#include <newdev.h>
#include <setupapi.h>

#include <fstream>
#include <memory>
#include <type_traits>
#include <vector>

namespace instrumentbus {

namespace {

namespace fs = std::filesystem;

const wchar_t HardwareId[] = L"root\\MorvaneTestInstrument";
const wchar_t ServiceName[] = L"MorvaneTestInstrument";
const wchar_t FileName[] = L"MorvaneTestInstrument.sys";
// Of the session: each Wine prefix has its own.
const wchar_t InstallationName[] = L"Local\\MorvaneTestInstrumentInstallation";
const GUID DeviceClass = {0x4d36e97d, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}}; // System

constexpr std::chrono::milliseconds HelloPatience{5'000};

const char Inf[] = R"([Version]
Signature="$Windows NT$"
Class=System
ClassGuid={4d36e97d-e325-11ce-bfc1-08002be10318}
Provider="Test"
DriverVer=01/01/2020,1.0.0.0

[Manufacturer]
"Test"=Models,NTamd64

[Models.NTamd64]
"Simulated instrument"=Install,root\MorvaneTestInstrument

[Install.NTamd64]

[Install.NTamd64.Services]
AddService=MorvaneTestInstrument,0x2,Service

[Service]
ServiceType=1
StartType=3
ErrorControl=1
ServiceBinary=%12%\MorvaneTestInstrument.sys
)";

/// Owner of a set of devices.
class DeviceSet
{
public:
    explicit DeviceSet(HDEVINFO set) : m_set(set) {}
    ~DeviceSet()
    {
        if (m_set != INVALID_HANDLE_VALUE) {
            ::SetupDiDestroyDeviceInfoList(m_set);
        }
    }
    DeviceSet(const DeviceSet&) = delete;
    DeviceSet& operator=(const DeviceSet&) = delete;
    HDEVINFO Get() const noexcept { return m_set; }

private:
    HDEVINFO m_set;
};

/// Of several programs that install or remove the driver one at a time goes on.
class InstallationTurn
{
public:
    explicit InstallationTurn(std::chrono::milliseconds timeout)
        : m_mutex(::CreateMutexW(nullptr, FALSE, InstallationName)),
          m_result(::WaitForSingleObject(m_mutex.Get(), static_cast<DWORD>(timeout.count())))
    {
    }
    ~InstallationTurn()
    {
        if (IsOurs()) {
            ::ReleaseMutex(m_mutex.Get());
        }
    }
    InstallationTurn(const InstallationTurn&) = delete;
    InstallationTurn& operator=(const InstallationTurn&) = delete;

    /// Also after one that died in its turn: every step can be done again.
    bool IsOurs() const noexcept { return m_result == WAIT_OBJECT_0 || m_result == WAIT_ABANDONED; }

private:
    win32::KernelHandle m_mutex;
    DWORD m_result;
};

const char NoTurn[] = "another program is installing the driver and does not come to an end";

std::string Failure(const char* what)
{
    return std::string(what) + " failed with error " + std::to_string(::GetLastError());
}

fs::path InstalledDriver()
{
    wchar_t folder[MAX_PATH] = {};
    ::GetSystemDirectoryW(folder, MAX_PATH);
    return fs::path(folder) / L"drivers" / FileName;
}

std::string RegisterNode(HDEVINFO set, std::uint32_t slot)
{
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof device;
    const std::wstring name = L"root\\MorvaneTestInstrument\\000" + std::to_wstring(slot);
    if (::SetupDiCreateDeviceInfoW(set, name.c_str(), &DeviceClass, nullptr, nullptr, 0, &device) == FALSE) {
        return ::GetLastError() == ERROR_DEVINST_ALREADY_EXISTS ? std::string()
                                                                : Failure("SetupDiCreateDeviceInfo");
    }
    std::wstring ids(HardwareId);
    ids.append(2, L'\0'); // a list of strings
    if (::SetupDiSetDeviceRegistryPropertyW(set, &device, SPDRP_HARDWAREID,
                                            reinterpret_cast<const BYTE*>(ids.data()),
                                            static_cast<DWORD>(ids.size() * sizeof(wchar_t))) == FALSE)
    {
        return Failure("SetupDiSetDeviceRegistryProperty");
    }
    if (::SetupDiCallClassInstaller(DIF_REGISTERDEVICE, set, &device) == FALSE) {
        return Failure("SetupDiCallClassInstaller");
    }
    return {};
}

std::string RegisterNodes()
{
    const DeviceSet set(::SetupDiCreateDeviceInfoList(&DeviceClass, nullptr));
    for (std::uint32_t slot = 0; slot < SlotCount; ++slot) {
        if (std::string failure = RegisterNode(set.Get(), slot); !failure.empty()) {
            return failure;
        }
    }
    return {};
}

std::string WriteFiles(const fs::path& driver, const fs::path& inf)
{
    std::error_code error;
    fs::copy_file(driver, InstalledDriver(), fs::copy_options::overwrite_existing, error);
    if (error) {
        return "copying " + driver.string() + " failed: " + error.message();
    }
    std::ofstream(inf) << Inf;
    return {};
}

bool IsReady()
{
    const win32::FileHandle remote = OpenRemote();
    Hello hello{};
    std::uint32_t returned = 0;
    const std::span<std::uint8_t> answer(reinterpret_cast<std::uint8_t*>(&hello), sizeof hello);
    return remote && RemoteCall(remote.Get(), RemoteHello, {}, answer, returned, HelloPatience) == ERROR_SUCCESS &&
           hello.version == ProtocolVersion && hello.startedSlots == SlotCount;
}

bool WaitUntilReady(std::chrono::milliseconds timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!IsReady()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        ::Sleep(5); // between two looks: no event announces it
    }
    return true;
}

bool IsOurs(HDEVINFO set, SP_DEVINFO_DATA& device)
{
    wchar_t ids[256] = {};
    return ::SetupDiGetDeviceRegistryPropertyW(set, &device, SPDRP_HARDWAREID, nullptr,
                                               reinterpret_cast<BYTE*>(ids), sizeof ids - sizeof *ids,
                                               nullptr) != FALSE &&
           _wcsicmp(ids, HardwareId) == 0;
}

std::string RemoveNodes()
{
    const DeviceSet set(::SetupDiGetClassDevsW(&DeviceClass, L"root", nullptr, 0));
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof device;
    for (DWORD i = 0; ::SetupDiEnumDeviceInfo(set.Get(), i, &device) != FALSE; ++i) {
        if (IsOurs(set.Get(), device) && ::SetupDiCallClassInstaller(DIF_REMOVE, set.Get(), &device) == FALSE) {
            return Failure("removing a device node");
        }
    }
    return {};
}

/// Closes a handle of the service manager.
struct CloseService
{
    void operator()(SC_HANDLE handle) const noexcept { ::CloseServiceHandle(handle); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, CloseService>;

std::string DeleteService()
{
    const ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    const ServiceHandle service(
        manager ? ::OpenServiceW(manager.get(), ServiceName, SERVICE_STOP | DELETE | SERVICE_QUERY_STATUS)
                : nullptr);
    if (!service) {
        return ::GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST ? std::string() : Failure("opening the service");
    }
    SERVICE_STATUS status{};
    if (::ControlService(service.get(), SERVICE_CONTROL_STOP, &status) == FALSE &&
        ::GetLastError() != ERROR_SERVICE_NOT_ACTIVE)
    {
        return Failure("stopping the driver");
    }
    return ::DeleteService(service.get()) != FALSE ? std::string() : Failure("deleting the service");
}

} // namespace

fs::path DriverBesideProgram()
{
    return fs::path(win32::FolderOf(win32::ModulePath().value_or(L""))) / FileName;
}

std::string InstallDriver(const fs::path& driver, std::chrono::milliseconds timeout)
{
    const InstallationTurn turn(timeout);
    if (!turn.IsOurs()) {
        return NoTurn;
    }
    if (IsReady()) {
        return {};
    }
    const fs::path inf = fs::temp_directory_path() / (L"MorvaneTestInstrument.inf");
    if (std::string failure = WriteFiles(driver, inf); !failure.empty()) {
        return failure;
    }
    if (std::string failure = RegisterNodes(); !failure.empty()) {
        return failure;
    }
    if (::UpdateDriverForPlugAndPlayDevicesW(nullptr, HardwareId, inf.c_str(), INSTALLFLAG_FORCE, nullptr) ==
        FALSE)
    {
        return Failure("UpdateDriverForPlugAndPlayDevices");
    }
    return WaitUntilReady(timeout) ? std::string() : "the driver's slots did not become ready";
}

std::string UninstallDriver()
{
    const InstallationTurn turn(HelloPatience);
    if (!turn.IsOurs()) {
        return NoTurn;
    }
    if (std::string failure = RemoveNodes(); !failure.empty()) {
        return failure;
    }
    if (std::string failure = DeleteService(); !failure.empty()) {
        return failure;
    }
    std::error_code error;
    fs::remove(InstalledDriver(), error);
    return error ? "removing the driver's file failed: " + error.message() : std::string();
}

} // namespace instrumentbus
