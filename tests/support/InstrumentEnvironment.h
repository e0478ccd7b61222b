// Installs the simulated instruments' driver once for a whole test program.
#pragma once

#include "tests/instrument/InstrumentDriver.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

namespace instrumentbus {

/// To be registered by one source file of the program:
///
///     [[maybe_unused]] const testing::Environment* const environment =
///         testing::AddGlobalTestEnvironment(new instrumentbus::InstrumentEnvironment);
class InstrumentEnvironment : public testing::Environment
{
public:
    void SetUp() override { ASSERT_EQ(InstallDriver(DriverBesideProgram(), support::DefaultTimeout), ""); }
};

} // namespace instrumentbus
