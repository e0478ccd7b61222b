// WindowsCheck: compares what the router's code assumes of Windows with the Windows that it runs on.
#include "tests/windows/Kit.h"

#include "win32/Windows.h"

#include <objbase.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr const char* Help = R"(WindowsCheck: compares what the router's code assumes of Windows with this Windows.

  WindowsCheck                  one line for each assumption: "holds", "DIFFERS" or "skipped", with the title of
                                Microsoft's page about it
  WindowsCheck --kit SECONDS [TESTS]   the same, the test programs beside it (or those that TESTS names), a soak of
                                that length and the bench

Needs no rights, writes no settings, starts and stops no router. The exit code is 0, or 1 when anything differs.
)";

} // namespace

int main(int count, char** arguments)
{
    // A fault that a row provokes must not wait for a button to be pressed.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    const std::string_view first = count > 1 ? arguments[1] : "";
    // The server that faults is called as the router is: on its main thread, through its messages.
    ::CoInitializeEx(nullptr, first == "--fault" ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
    if (count == 1) {
        return windowscheck::CheckAll();
    }
    if (first == "--kit" && count >= 3 && std::atoi(arguments[2]) > 0) {
        return windowscheck::RunKit(std::atoi(arguments[2]), count > 3 ? arguments[3] : "");
    }
    if (count == 3) {
        if (const int code = windowscheck::PlayComRole(arguments[1], arguments[2]); code >= 0) {
            return code;
        }
    }
    std::printf("%s", Help);
    return first == "--help" ? 0 : 2;
}
