// A port of the library at a pipe that the test serves in the router's place.
#pragma once

#include "client/morvane_client.hpp"
#include "tests/support/WaitUntil.h"
#include "tests/unit/tools/FakePort.h"

#include <string>
#include <string_view>

inline constexpr morvane::Timeout Patient = support::DefaultTimeout;

inline std::string TextOf(const morvane::Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

inline std::string Narrow(const std::wstring& ascii)
{
    return {ascii.begin(), ascii.end()};
}

/// Options of a port at the pipe `name`, which must live as long as they are used.
inline morvane_options AttachTo(const std::string& name)
{
    morvane_options options = morvane::Options(3, 1);
    options.flags = MORVANE_ATTACH;
    options.name = name.c_str();
    options.open_timeout = static_cast<std::uint32_t>(support::DefaultTimeout.count());
    return options;
}

/// Waits for an event of that kind, past others; none when the time is over.
inline std::optional<morvane_event> AwaitEvent(const morvane::Port& port, int kind)
{
    while (auto event = port.NextEvent(Patient)) {
        if (event->kind == kind) {
            return event;
        }
    }
    return std::nullopt;
}

/// Of this process. Wine's own count is the size of the process's table, which doubles: here they are counted.
inline DWORD CountOfHandles()
{
    constexpr std::uintptr_t Last = 0x10000;
    DWORD count = 0;
    for (std::uintptr_t handle = 4; handle < Last; handle += 4) {
        DWORD flags = 0;
        count += ::GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags) != FALSE ? 1 : 0;
    }
    return count;
}
