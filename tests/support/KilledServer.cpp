#include "tests/support/KilledServer.h"

#include "tests/support/WaitUntil.h"
#include "win32/Windows.h"

#include <winsvc.h>

void ForgetKilledServers()
{
    const SC_HANDLE manager = ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE service = ::OpenServiceW(manager, L"RpcSs", SERVICE_STOP | SERVICE_QUERY_STATUS);
    SERVICE_STATUS status{};
    if (::ControlService(service, SERVICE_CONTROL_STOP, &status)) {
        support::WaitUntil(
            [&] { return ::QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_STOPPED; });
    }
    ::CloseServiceHandle(service);
    ::CloseServiceHandle(manager);
}
