// Calls of Windows that only the unit tests make, and what tests replace in the real Windows.
#include "simulation/kernel/Call.h"
#include "simulation/kernel/Memory.h"
#include "simulation/kernel/Pipes.h"
#include "simulation/kernel/Scheduler.h"
#include "tests/support/AllocationCount.h"
#include "tests/support/OwnFolder.h"
#include "tests/support/UnderWine.h"

#include <string>

using namespace sim;

BOOL DuplicateHandle(HANDLE /*fromProcess*/, HANDLE handle, HANDLE /*toProcess*/, HANDLE* copy, DWORD /*access*/,
                     BOOL /*inherits*/, DWORD options)
{
    Call call("DuplicateHandle");
    if (options != DUPLICATE_SAME_ACCESS) {
        Fault("a handle is copied in a way that is not known here");
    }
    *copy = AddHandle(Ref<Object>(&ObjectOf(handle)));
    return TRUE;
}

BOOL GetHandleInformation(HANDLE handle, DWORD* flags)
{
    Call call("GetHandleInformation");
    *flags = 0;
    return IsOpen(handle) ? TRUE : Call::Refuse(ERROR_INVALID_HANDLE);
}

BOOL GetProcessHandleCount(HANDLE /*process*/, DWORD* count)
{
    Call call("GetProcessHandleCount");
    *count = static_cast<DWORD>(OpenHandles());
    return TRUE;
}

DWORD GetCurrentProcessId() noexcept
{
    return 1;
}

HANDLE CreateNamedPipeW(const wchar_t* name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD outSize,
                        DWORD inSize, DWORD timeout, SECURITY_ATTRIBUTES* security)
{
    std::string narrow;
    for (const wchar_t* at = name; *at != L'\0'; ++at) {
        narrow += static_cast<char>(*at);
    }
    return CreateNamedPipeA(narrow.c_str(), openMode, pipeMode, instances, outSize, inSize, timeout, security);
}

BOOL PeekNamedPipe(HANDLE pipe, LPVOID buffer, DWORD /*size*/, DWORD* /*read*/, DWORD* available,
                   DWORD* /*leftOfMessage*/)
{
    Call call("PeekNamedPipe");
    if (buffer != nullptr) {
        Fault("PeekNamedPipe in a way that is not known here");
    }
    auto& end = static_cast<PipeEnd&>(ObjectOf(pipe, Object::Kind::PipeEnd));
    if (end.detached) {
        return Call::Refuse(ERROR_PIPE_NOT_CONNECTED);
    }
    *available = 0;
    for (const Message& message : end.In().messages) {
        *available += static_cast<DWORD>(message.Left());
    }
    return *available != 0 || end.IsOtherOpen() ? TRUE : Call::Refuse(ERROR_BROKEN_PIPE);
}

std::size_t LiveAllocations() noexcept
{
    return BlocksInUse();
}

namespace support {

bool IsUnderWine()
{
    return false;
}

bool DoneInOwnFolder()
{
    Fault("a test wants a folder: here is none");
}

} // namespace support
