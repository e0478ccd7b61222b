// The calls that work on files of each kind, and the files themselves: the router's folder has none.
#include "simulation/kernel/Call.h"
#include "simulation/kernel/Devices.h"
#include "simulation/kernel/Pipes.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

using namespace sim;

HANDLE CreateFileA(const char* name, DWORD access, DWORD /*share*/, SECURITY_ATTRIBUTES* /*security*/,
                   DWORD disposition, DWORD flags, HANDLE /*pattern*/)
{
    Call call("CreateFileA");
    if (disposition != OPEN_EXISTING || access == 0 || (flags & FILE_FLAG_OVERLAPPED) == 0) {
        Fault("CreateFileA in a way that is not known here");
    }
    if (call.Fails({ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY, ERROR_SHARING_VIOLATION})) {
        return INVALID_HANDLE_VALUE;
    }
    return std::strncmp(name, "\\\\.\\pipe\\", 9) == 0 ? OpenPipe(name) : OpenDevice(name);
}

HANDLE CreateFileW(const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE pattern)
{
    const std::wstring_view wide = name;
    if (wide.starts_with(L"\\\\.\\pipe\\")) {
        std::string narrow;
        std::ranges::transform(wide, std::back_inserter(narrow), [](wchar_t c) { return static_cast<char>(c); });
        return CreateFileA(narrow.c_str(), access, share, security, disposition, flags, pattern);
    }
    Call call("CreateFileW");
    call.Refuse(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
}

DWORD GetFileAttributesW(const wchar_t* /*name*/)
{
    Call call("GetFileAttributesW");
    call.Refuse(ERROR_FILE_NOT_FOUND);
    return INVALID_FILE_ATTRIBUTES;
}

BOOL GetFileSizeEx(HANDLE /*file*/, LARGE_INTEGER* /*size*/)
{
    Fault("no file can be open here");
}

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD length, DWORD* read, OVERLAPPED* record)
{
    Call call("ReadFile");
    if (IsNoHandle(handle)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    auto& end = static_cast<PipeEnd&>(ObjectOf(handle, Object::Kind::PipeEnd));
    const Request request = Accept(record, end, buffer, length);
    if (const DWORD error = call.Injected(
            {ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_SYSTEM_RESOURCES, ERROR_NOT_ENOUGH_QUOTA, ERROR_BROKEN_PIPE});
        error != 0)
    {
        return RefuseStart(request, error, false);
    }
    const BOOL result = ReadPipe(end, request, read);
    Point("ReadFile done");
    return result;
}

BOOL WriteFile(HANDLE handle, const void* data, DWORD length, DWORD* written, OVERLAPPED* record)
{
    Call call("WriteFile");
    if (IsNoHandle(handle)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    auto& end = static_cast<PipeEnd&>(ObjectOf(handle, Object::Kind::PipeEnd));
    const Request request =
        Accept(record, end, const_cast<std::uint8_t*>(static_cast<const std::uint8_t*>(data)), length);
    if (const DWORD error = call.Injected(
            {ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_SYSTEM_RESOURCES, ERROR_NOT_ENOUGH_QUOTA, ERROR_NO_DATA});
        error != 0)
    {
        return RefuseStart(request, error, false);
    }
    const BOOL result = WritePipe(end, request, data, written);
    Point("WriteFile done");
    return result;
}

BOOL FlushFileBuffers(HANDLE handle)
{
    Call call("FlushFileBuffers");
    if (IsNoHandle(handle)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    return FlushPipe(static_cast<PipeEnd&>(ObjectOf(handle, Object::Kind::PipeEnd)));
}
