#include "tests/windows/Row.h"

#include "tests/support/UniqueName.h"
#include "win32/Handle.h"

#include <aclapi.h>

#include <array>
#include <stdexcept>

namespace windowscheck {

namespace {

/// A pipe as the router makes it, or as it does when that is so set.
win32::FileHandle MakePipe(DWORD furtherMode = 0)
{
    const std::wstring path = support::PipePath(support::UniqueName(L"WindowsCheck"));
    win32::FileHandle pipe(::CreateNamedPipeW(path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                              PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE | PIPE_WAIT | furtherMode, 1,
                                              4096, 4096, 0, nullptr));
    if (!pipe) {
        throw std::runtime_error("no pipe, error " + std::to_string(::GetLastError()));
    }
    return pipe;
}

Found RemoteClientsRefused()
{
    MakePipe(PIPE_REJECT_REMOTE_CLIENTS);
    return Holds();
}

/// The rights that the default DACL of a pipe gives everyone.
Found DefaultSecurity()
{
    const win32::FileHandle pipe = MakePipe();
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (const DWORD error = ::GetSecurityInfo(pipe.Get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                              nullptr, &list, nullptr, &descriptor);
        error != ERROR_SUCCESS)
    {
        return Differs("the pipe's security can't be read, error " + std::to_string(error));
    }
    std::array<BYTE, SECURITY_MAX_SID_SIZE> everyone{};
    DWORD size = everyone.size();
    ::CreateWellKnownSid(WinWorldSid, nullptr, everyone.data(), &size);
    bool mayRead = false;
    for (DWORD entry = 0; list != nullptr && entry < list->AceCount; ++entry) {
        void* ace = nullptr;
        if (::GetAce(list, entry, &ace)) {
            auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
            mayRead = mayRead ||
                      (allowed->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
                       ::EqualSid(&allowed->SidStart, everyone.data()) && (allowed->Mask & FILE_READ_DATA) != 0);
        }
    }
    ::LocalFree(descriptor);
    return HoldsIf(mayRead, list == nullptr ? "there is no access control list" : "everyone has no right to read");
}

} // namespace

std::vector<Row> PipeRows()
{
    return {
        {"A pipe can refuse clients over the network.", "CreateNamedPipe function", RemoteClientsRefused},
        {"By default everyone may open a pipe for reading.", "Named Pipe Security and Access Rights",
         DefaultSecurity},
    };
}

} // namespace windowscheck
