#include "tests/support/WaitUntil.h"

namespace support {

bool WaitFor(HANDLE object, std::chrono::milliseconds timeout)
{
    return ::WaitForSingleObject(object, static_cast<DWORD>(timeout.count())) == WAIT_OBJECT_0;
}

bool WaitUntil(const std::function<bool()>& holds, std::chrono::milliseconds timeout)
{
    const ULONGLONG deadline = ::GetTickCount64() + static_cast<ULONGLONG>(timeout.count());
    while (!holds()) {
        if (::GetTickCount64() >= deadline) {
            return false;
        }
        ::Sleep(1); // between two looks; the condition ends the wait, not the pause
    }
    return true;
}

} // namespace support
