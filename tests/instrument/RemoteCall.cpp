#include "tests/instrument/RemoteCall.h"

#include "win32/Event.h"

namespace instrumentbus {

win32::FileHandle OpenRemote()
{
    return win32::FileHandle(::CreateFileW(L"\\\\.\\MorvaneInstrumentRemote", GENERIC_READ | GENERIC_WRITE,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                           FILE_FLAG_OVERLAPPED, nullptr));
}

DWORD RemoteCall(HANDLE remote, std::uint32_t code, std::span<const std::uint8_t> input,
                 std::span<std::uint8_t> answer, std::uint32_t& answered, std::chrono::milliseconds timeout)
{
    answered = 0;
    const win32::Event completed(win32::Event::Kind::ManualReset);
    OVERLAPPED overlapped{};
    overlapped.hEvent = completed.Get();
    if (::DeviceIoControl(remote, code, const_cast<std::uint8_t*>(input.data()), static_cast<DWORD>(input.size()),
                          answer.data(), static_cast<DWORD>(answer.size()), nullptr, &overlapped) == FALSE)
    {
        if (::GetLastError() != ERROR_IO_PENDING) {
            return ::GetLastError();
        }
        if (!completed.Wait(static_cast<DWORD>(timeout.count()))) {
            ::CancelIoEx(remote, &overlapped);
        }
    }
    DWORD returned = 0;
    if (::GetOverlappedResult(remote, &overlapped, &returned, TRUE) == FALSE) {
        return ::GetLastError();
    }
    answered = returned;
    return ERROR_SUCCESS;
}

} // namespace instrumentbus
