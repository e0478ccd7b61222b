#include "tests/unit/diag/FakeHost.h"

#include "diag/Resource.h"

namespace {

std::vector<ShellCall> g_notified;
std::vector<Opened> g_executed;
bool g_refusing = false;

BOOL WINAPI RecordNotify(DWORD message, PNOTIFYICONDATAW data)
{
    g_notified.push_back({message, *data});
    return g_refusing ? FALSE : TRUE;
}

HINSTANCE WINAPI RecordExecute(HWND, LPCWSTR verb, LPCWSTR file, LPCWSTR parameters, LPCWSTR folder, INT show)
{
    g_executed.push_back({verb, file, parameters != nullptr || folder != nullptr, show});
    return reinterpret_cast<HINSTANCE>(33); // "worked" is anything above 32
}

} // namespace

const std::vector<ShellCall>& NotifyCalls()
{
    return g_notified;
}

const std::vector<Opened>& ExecuteCalls()
{
    return g_executed;
}

void ForgetShellCalls()
{
    g_notified.clear();
    g_executed.clear();
    g_refusing = false;
}

void RefuseShellCalls(bool refuse)
{
    g_refusing = refuse;
}

Shell RecordingShell()
{
    return {&RecordNotify, &RecordExecute};
}

UINT IconId(HICON icon)
{
    for (const UINT id : {IDI_CONNECTED_1, IDI_CONNECTED_2, IDI_CONNECTED_3, IDI_DISCONNECTED}) {
        // Icons of a program are loaded once and shared.
        if (icon != nullptr && icon == ::LoadIconW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(id))) {
            return id;
        }
    }
    return 0;
}
