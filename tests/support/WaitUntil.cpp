#include "tests/support/WaitUntil.h"

namespace support {

bool WaitFor(HANDLE object, std::chrono::milliseconds patience)
{
    return ::WaitForSingleObject(object, static_cast<DWORD>(patience.count())) == WAIT_OBJECT_0;
}

bool WaitUntil(const std::function<bool()>& holds, std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!holds()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        // Gives the processor away between two looks; nobody counts on its length.
        ::Sleep(1);
    }
    return true;
}

} // namespace support
