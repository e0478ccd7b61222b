#include "Refusal.h"

#include "win32/Windows.h"

#include <array>
#include <cstdio>

namespace {

std::string Hex(std::uint32_t result)
{
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), " (0x%08lX)", static_cast<unsigned long>(result));
    return text.data();
}

/// Nothing tells a missing instrument from a port that another client registered under its own pipe name: Register
/// succeeds in both cases.
std::string TextOf(int error, std::uint32_t windowsError)
{
    const std::string code = " (" + std::to_string(windowsError) + ")";
    if (error == MORVANE_E_HELD) {
        return " is busy" + code + ": another client holds the port";
    }
    if (windowsError == ERROR_FILE_NOT_FOUND) {
        return " does not appear" + code +
               ": no instrument is connected, or the port is registered under another pipe name";
    }
    return " can't be opened" + code;
}

} // namespace

ProbeFault FaultOf(const ProbePort& port, const morvane_event& why)
{
    const bool isGone = why.kind == MORVANE_EVENT_INSTRUMENT_GONE;
    const int error = isGone ? MORVANE_E_NO_PIPE : why.error;
    const std::uint32_t windowsError = isGone ? ERROR_FILE_NOT_FOUND : why.windows_error;
    switch (error) {
    case MORVANE_E_HELD:
    case MORVANE_E_NO_PIPE:
    case MORVANE_E_ACCESS:
        return {error == MORVANE_E_HELD ? ExitCode::PipeBusy : ExitCode::NeverServed,
                port.Label() + R"( \\.\pipe\)" + port.pipeName + TextOf(error, windowsError)};
    case MORVANE_E_NOT_REGISTERED:
        return {ExitCode::NotRegistered,
                "the router is not registered: run \"MorvanePortRouter.exe /RegServer\"" + Hex(windowsError)};
    case MORVANE_E_ROUTER_GONE:
        return {ExitCode::NoRouter,
                port.Label() + " can't be registered: the router does not answer" + Hex(windowsError)};
    default: return {ExitCode::NoRouter, "the router does not start" + Hex(windowsError)};
    }
}

bool IsFinal(const ProbeFault& fault)
{
    return fault.code == ExitCode::PipeBusy || fault.code == ExitCode::NotRegistered;
}

bool IsOfTheRouter(const ProbeFault& fault)
{
    return fault.code == ExitCode::NotRegistered || fault.code == ExitCode::NoRouter;
}
