#include "tests/support/RouterSession.h"

#include "client/RouterAutomation.h"
#include "tests/support/KilledServer.h"
#include "tests/support/RouterNames.h"
#include "tests/support/UniqueName.h"
#include "win32/RegistryKey.h"

#include <objbase.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

namespace {

constexpr const wchar_t* Products = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\Products";
constexpr const wchar_t* Settings = L"Software\\Morvane Biosystems";
constexpr const wchar_t* RouterName = L"MorvanePortRouter.exe";

/// The router's process; of several programs of its name (one that registered it and is about to leave the list,
/// one that found it running and ends) the one that goes on.
win32::KernelHandle OpenRouter()
{
    win32::KernelHandle router;
    support::WaitUntil([&] {
        std::vector<win32::KernelHandle> running;
        for (const DWORD id : ProcessesNamed(RouterName)) {
            win32::KernelHandle process(::OpenProcess(PROCESS_ALL_ACCESS, FALSE, id));
            if (process && ::WaitForSingleObject(process.Get(), 0) == WAIT_TIMEOUT) {
                running.push_back(std::move(process));
            }
        }
        if (running.size() == 1) {
            router = std::move(running.front());
        }
        return static_cast<bool>(router);
    });
    return router;
}

/// A router's last call to Wine's service for COM can be lost, and a router that is started by hand then registers
/// after the one that has ended. To be asked before the class is registered: the question must start no router.
void ForgetServerOfEarlierTest()
{
    void* factory = nullptr;
    const HRESULT result =
        ::CoGetClassObject(__uuidof(MorvaneUSBRouter), CLSCTX_LOCAL_SERVER, nullptr, IID_IClassFactory, &factory);
    if (result == HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE)) {
        ForgetKilledServers();
    } else if (SUCCEEDED(result)) {
        static_cast<IClassFactory*>(factory)->Release();
    }
}

} // namespace

DWORD FindProgram(const std::wstring& name)
{
    const std::vector<DWORD> found = ProcessesNamed(name);
    return found.empty() ? 0 : found.front();
}

RouterSession::RouterSession(Transport transport)
    : m_folder(std::filesystem::temp_directory_path() / support::UniqueName(L"router")),
      m_program(m_folder / RouterName)
{
    ::CoInitialize(nullptr);
    std::filesystem::create_directories(m_folder);
    std::filesystem::copy_file(support::ProgramFolder() / RouterName, m_program);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, Settings);
    const auto key = win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, support::OptionsKey, KEY_READ | KEY_WRITE);
    key.WriteDword(L"SimulateUSB", transport == Transport::Simulation ? 1 : 0);
    ForgetServerOfEarlierTest();
    Run(L"/RegServer");
}

RouterSession::~RouterSession()
{
    Release();
    if (m_process && !WaitForEnd(std::chrono::seconds(5))) {
        ::TerminateProcess(m_process.Get(), 98);
        WaitForEnd();
        ForgetKilledServers();
    }
    Run(L"/UnregServer");
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, Settings);
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
    ::CoUninitialize();
}

void RouterSession::SetMask(int device, DWORD mask)
{
    const std::wstring name = std::wstring(support::OptionsKey) + L"\\" + std::to_wstring(device);
    win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, name.c_str(), KEY_READ | KEY_WRITE)
        .WriteDword(L"DebugMask", mask);
}

void RouterSession::AddProduct(DWORD productId, DWORD bootloaderVersion)
{
    const std::wstring name = std::wstring(Products) + L"\\Product " + std::to_wstring(productId);
    const auto key = win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, name.c_str(), KEY_READ | KEY_WRITE);
    key.WriteDword(L"ProductID", productId);
    key.WriteDword(L"BootloaderVersion", bootloaderVersion);
}

std::filesystem::path RouterSession::WriteFirmware(int productId, const std::string& image) const
{
    const std::filesystem::path folder = m_folder / L"Firmware";
    std::filesystem::create_directories(folder);
    std::filesystem::path file = folder / (L"Firmware_" + std::to_wstring(productId) + L".Out");
    std::ofstream(file, std::ios::binary) << image;
    return file;
}

bool RouterSession::Activate()
{
    const auto create = [](void** object) {
        return ::CoCreateInstance(__uuidof(MorvaneUSBRouter), nullptr, CLSCTX_LOCAL_SERVER,
                                  __uuidof(IMorvaneUSBRouter), object);
    };
    void* object = nullptr;
    HRESULT result = create(&object);
    if (result == HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE) && ProcessesNamed(RouterName).empty()) {
        // The class object of a router that has ended; see ForgetKilledServers.
        ForgetKilledServers();
        result = create(&object);
    }
    if (FAILED(result)) {
        std::printf("the activation failed with 0x%08lX\n", static_cast<unsigned long>(result));
        return false;
    }
    m_object = static_cast<IMorvaneUSBRouter*>(object);
    m_process = OpenRouter();
    if (!m_process) {
        std::printf("the activated router's process can't be found\n");
    }
    return static_cast<bool>(m_process);
}

HRESULT RouterSession::RegisterPort(LONG deviceType, ULONG port, const std::wstring& pipeName, LONG size)
{
    if (m_object == nullptr) {
        return E_POINTER;
    }
    const BSTR name = ::SysAllocString(pipeName.c_str());
    const HRESULT result = m_object->Register(deviceType, port, size, size, name);
    ::SysFreeString(name);
    return result;
}

HRESULT RouterSession::UnregisterPort(LONG deviceType, ULONG port)
{
    return m_object != nullptr ? m_object->Unregister(deviceType, port) : E_POINTER;
}

void RouterSession::Release()
{
    if (m_object != nullptr) {
        m_object->Release();
        m_object = nullptr;
    }
}

std::optional<DWORD> RouterSession::WaitForEnd(std::chrono::milliseconds timeout) const
{
    DWORD code = 0;
    if (!m_process || !support::WaitFor(m_process.Get(), timeout) || !::GetExitCodeProcess(m_process.Get(), &code))
    {
        return std::nullopt;
    }
    return code;
}

std::string RouterSession::Log() const
{
    std::ifstream in(LogFile(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool RouterSession::WaitForLog(const std::string& part, std::chrono::milliseconds timeout) const
{
    return support::WaitUntil([&] { return Log().find(part) != std::string::npos; }, timeout);
}

std::optional<DWORD> RouterSession::Run(const std::wstring& arguments) const
{
    return support::ChildProcess(m_program, arguments).WaitForExit();
}
