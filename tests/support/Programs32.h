// 32-bit programs of the build, for tests that run them where that is possible.
#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/TestSupport.h"

#include <cstdlib>
#include <filesystem>

namespace support {

/// x86\`name` beside this program.
inline std::filesystem::path Program32(const wchar_t* name)
{
    return ProgramFolder() / L"x86" / name;
}

/// Whether this Windows, or Wine, runs 32-bit programs. Wine may have their libraries and yet not run them, so it
/// is tried: without arguments the client ends with the code of a wrong command line.
inline bool Runs32BitPrograms()
{
    return std::filesystem::exists(Program32(L"Client32.exe")) &&
           ChildProcess(Program32(L"Client32.exe"), {}).WaitForExit() == 2u;
}

/// Whether they have to run: check-platforms says so after it has installed 32-bit Wine.
inline bool Needs32BitPrograms()
{
    return std::getenv("MORVANE_NEEDS_WINE32") != nullptr;
}

} // namespace support
