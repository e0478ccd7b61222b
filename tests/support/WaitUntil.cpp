#include "tests/support/WaitUntil.h"

namespace support {

bool WaitFor(HANDLE object, std::chrono::milliseconds timeout)
{
    return ::WaitForSingleObject(object, static_cast<DWORD>(timeout.count())) == WAIT_OBJECT_0;
}

bool WaitUntil(const std::function<bool()>& holds, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!holds()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        ::Sleep(1); // between two looks; the condition ends the wait, not the pause
    }
    return true;
}

} // namespace support
