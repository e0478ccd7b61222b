// The built router as a client meets it: registered, configured and activated from outside.
#pragma once

#include "tests/support/ChildProcess.h"
#include "win32/Handle.h"

#include <MorvanePortRouter.h>

#include <filesystem>
#include <optional>
#include <string>

/// One router, from its registration to its end. The program is copied into a folder of its own, so that its log
/// is the test's, and is registered from there; the registration and the router's settings go with the session.
/// They are the machine's, so of the programs that use a session only one may run at a time on one machine.
/// Initialises COM for the test's thread.
class RouterSession
{
public:
    enum class Transport { Simulation, Usb };

    explicit RouterSession(Transport transport);
    /// Releases the object, ends a router that is left and unregisters it.
    ~RouterSession();
    RouterSession(const RouterSession&) = delete;
    RouterSession& operator=(const RouterSession&) = delete;

    const std::filesystem::path& Program() const noexcept { return m_program; }

    /// Trace mask of a device number, for routers started from now on.
    static void SetMask(int device, DWORD mask);

    /// An entry of the product table, for routers started from now on. With any, only those are accepted.
    static void AddProduct(DWORD productId, DWORD bootloaderVersion);

    /// Puts a firmware image for that product beside the program.
    std::filesystem::path WriteFirmware(int productId, const std::string& image) const;

    /// Activates the router, from this thread, and keeps the object. False when that failed.
    bool Activate();
    /// Registers a port with the activated router.
    HRESULT RegisterPort(LONG deviceType, ULONG port, const std::wstring& pipeName, LONG size = 65'536);
    HRESULT UnregisterPort(LONG deviceType, ULONG port);
    /// Releases the object: the router ends unless others hold it.
    void Release();
    IMorvaneUSBRouter* Object() const noexcept { return m_object; }

    /// The running router's process, null when none runs.
    HANDLE Process() const noexcept { return m_process.Get(); }
    /// The exit code of the activated router once it has ended.
    std::optional<DWORD> WaitForEnd(std::chrono::milliseconds timeout = support::DefaultTimeout) const;

    std::filesystem::path LogFile() const { return m_folder / L"Log" / L"MorvanePortRouter.log"; }
    std::string Log() const;
    bool WaitForLog(const std::string& part, std::chrono::milliseconds timeout = support::DefaultTimeout) const;

    /// Runs the program with `arguments` and returns its exit code.
    std::optional<DWORD> Run(const std::wstring& arguments) const;

private:
    std::filesystem::path m_folder;
    std::filesystem::path m_program;
    IMorvaneUSBRouter* m_object = nullptr;
    win32::KernelHandle m_process;
};

/// Process id of the running program of that name, 0 when there is none.
DWORD FindProgram(const std::wstring& name);
