// The calls that work on files of each kind.
#include "simulation/kernel/Call.h"
#include "simulation/kernel/Devices.h"
#include "simulation/kernel/Disk.h"
#include "simulation/kernel/Pipes.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

using namespace sim;

namespace {

constexpr std::string_view PipePrefix = "\\\\.\\pipe\\";

template <class Char>
bool IsPipePath(std::basic_string_view<Char> path)
{
    return path.size() > PipePrefix.size() &&
           std::equal(PipePrefix.begin(), PipePrefix.end(), path.begin(), [](char a, Char b) {
               return static_cast<Char>(a) == (b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b);
           });
}

/// A request without a record, on a handle that is not overlapped: the call has a record of its own and waits for
/// its end, or until CancelSynchronousIo.
template <class Start>
BOOL Synchronously(PipeEnd& end, DWORD* count, const Start& start)
{
    const Ref<Object> kept(&end);
    OVERLAPPED record{};
    record.hEvent = AddHandle(Ref<Object>(new EventObject(true, false)));
    Fiber& self = Current();
    BOOL done = start(&record);
    if (!done && self.lastError == ERROR_IO_PENDING) {
        self.blocksInFile = true;
        if (WaitForAny(&record.hEvent, 1, INFINITE) == ERROR_OPERATION_ABORTED) {
            CancelPipeRequest(end, &record, true);
        }
        self.blocksInFile = false;
        *count = static_cast<DWORD>(record.InternalHigh);
        done = record.Internal == ERROR_SUCCESS ? TRUE : Call::Refuse(static_cast<DWORD>(record.Internal));
    }
    CloseHandle(record.hEvent);
    return done;
}

BOOL Read(Call& call, PipeEnd& end, LPVOID buffer, DWORD length, DWORD* read, OVERLAPPED* record)
{
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

BOOL Write(Call& call, PipeEnd& end, const void* data, DWORD length, DWORD* written, OVERLAPPED* record)
{
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

} // namespace

constexpr std::wstring_view DevicePrefix = L"\\\\.\\";

HANDLE CreateFileA(const char* name, DWORD access, DWORD /*share*/, SECURITY_ATTRIBUTES* /*security*/,
                   DWORD disposition, DWORD flags, HANDLE /*pattern*/)
{
    Call call("CreateFileA");
    const bool isPipe = IsPipePath(std::string_view(name));
    const bool isOverlapped = (flags & FILE_FLAG_OVERLAPPED) != 0;
    if (disposition != OPEN_EXISTING || access == 0 || !(isPipe || isOverlapped)) {
        Fault("CreateFileA in a way that is not known here");
    }
    if (call.Fails({ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY, ERROR_SHARING_VIOLATION})) {
        return INVALID_HANDLE_VALUE;
    }
    return isPipe ? OpenPipe(name, isOverlapped) : OpenDevice(name);
}

HANDLE CreateFileW(const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE pattern)
{
    const std::wstring_view wide = name;
    if (IsPipePath(wide) || (wide.starts_with(DevicePrefix) && TheWorld().devices->driver != nullptr)) {
        std::string narrow;
        std::ranges::transform(wide, std::back_inserter(narrow), [](wchar_t c) { return static_cast<char>(c); });
        return CreateFileA(narrow.c_str(), access, share, security, disposition, flags, pattern);
    }
    Call call("CreateFileW");
    if (disposition != OPEN_EXISTING && disposition != OPEN_ALWAYS && disposition != CREATE_ALWAYS) {
        Fault("CreateFileW in a way that is not known here");
    }
    return OpenOnDisk(call, name, access, share, disposition);
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
    if (end.overlapped || record != nullptr) {
        return Read(call, end, buffer, length, read, record);
    }
    return Synchronously(end, read, [&](OVERLAPPED* own) { return Read(call, end, buffer, length, read, own); });
}

BOOL WriteFile(HANDLE handle, const void* data, DWORD length, DWORD* written, OVERLAPPED* record)
{
    Call call("WriteFile");
    if (IsNoHandle(handle)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    if (Object& file = ObjectOf(handle); file.kind == Object::Kind::File) {
        return WriteToDisk(call, static_cast<OpenFile&>(file), {static_cast<const char*>(data), length}, written);
    }
    auto& end = static_cast<PipeEnd&>(ObjectOf(handle, Object::Kind::PipeEnd));
    if (end.overlapped || record != nullptr) {
        return Write(call, end, data, length, written, record);
    }
    return Synchronously(end, written,
                         [&](OVERLAPPED* own) { return Write(call, end, data, length, written, own); });
}

BOOL FlushFileBuffers(HANDLE handle)
{
    Call call("FlushFileBuffers");
    if (IsNoHandle(handle)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    if (ObjectOf(handle).kind == Object::Kind::File) {
        return call.Fails({ERROR_GEN_FAILURE, ERROR_DISK_FULL}) ? FALSE : TRUE;
    }
    return FlushPipe(static_cast<PipeEnd&>(ObjectOf(handle, Object::Kind::PipeEnd)));
}
