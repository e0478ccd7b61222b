#include "tests/unit/diag/Pump.h"

void PumpMessages()
{
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        ::TranslateMessage(&message);
        ::DispatchMessageW(&message);
    }
}

bool PumpUntil(const std::function<bool()>& holds)
{
    return support::WaitUntil([&] {
        PumpMessages();
        return holds();
    });
}
