// The built InstrumentSimulator as a process of the test.
#pragma once

#include "tests/system/InstrumentProcess.h"

class SimulatorProcess : public InstrumentProcess
{
public:
    explicit SimulatorProcess(const std::wstring& switches)
        : InstrumentProcess(L"InstrumentSimulator.exe", L"--quiet " + switches)
    {
    }
};
