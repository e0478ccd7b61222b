#include "tests/support/KilledServer.h"

#include "tests/support/WaitUntil.h"
#include "win32/Handle.h"

#include <winsvc.h>

void ForgetKilledServers()
{
    const SC_HANDLE manager = ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE service = ::OpenServiceW(manager, L"RpcSs", SERVICE_STOP | SERVICE_QUERY_STATUS);
    SERVICE_STATUS_PROCESS before{};
    DWORD needed = 0;
    ::QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&before), sizeof before,
                           &needed);
    const win32::KernelHandle process(::OpenProcess(SYNCHRONIZE, FALSE, before.dwProcessId));
    SERVICE_STATUS status{};
    if (::ControlService(service, SERVICE_CONTROL_STOP, &status)) {
        support::WaitUntil(
            [&] { return ::QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_STOPPED; });
        // A stopped service answers until its process has ended; a router that registers with it then is never
        // found.
        if (process) {
            support::WaitFor(process.Get());
        }
    }
    ::CloseServiceHandle(service);
    ::CloseServiceHandle(manager);
}
