// The built InstrumentBus as a process of the test: the instrument as a USB device.
#pragma once

#include "tests/system/InstrumentProcess.h"

class BusProcess : public InstrumentProcess
{
public:
    explicit BusProcess(const std::wstring& switches) : InstrumentProcess(L"InstrumentBus.exe", switches) {}
    /// Stopped, not killed: what a dying process cancels in the middle of traffic may take Wine's driver host with
    /// it.
    ~BusProcess() { Stop(); }
    BusProcess(const BusProcess&) = delete;
    BusProcess& operator=(const BusProcess&) = delete;
};
