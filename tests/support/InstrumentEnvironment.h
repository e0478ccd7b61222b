// Installs the simulated instruments' driver once for a whole test program.
#pragma once

#include "tests/instrument/InstrumentDriver.h"
#include "tests/support/WaitUntil.h"
#include "win32/Windows.h"

#include <gtest/gtest.h>

namespace instrumentbus {

/// To be registered by one source file of the program:
///
///     [[maybe_unused]] const testing::Environment* const environment =
///         testing::AddGlobalTestEnvironment(new instrumentbus::InstrumentEnvironment);
class InstrumentEnvironment : public testing::Environment
{
public:
    void SetUp() override
    {
        // Set where the programs run on a PC that nothing may be installed on. All tests are left out then.
        if (::GetEnvironmentVariableW(L"MORVANE_WITHOUT_DRIVER", nullptr, 0) != 0) {
            GTEST_SKIP() << "needs the driver of the simulated USB instrument";
        }
        ASSERT_EQ(InstallDriver(DriverBesideProgram(), support::DefaultTimeout), "");
    }
};

} // namespace instrumentbus
