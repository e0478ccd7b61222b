// Installs the simulated instruments' driver once for the whole program.
#include "tests/instrument/InstrumentDriver.h"
#include "tests/unit/usb/UsbFixture.h"

namespace {

class InstrumentEnvironment : public testing::Environment
{
public:
    void SetUp() override
    {
        const std::string failure =
            instrumentbus::InstallDriver(instrumentbus::DriverBesideProgram(), support::Patience);
        ASSERT_EQ(failure, "");
    }
};

[[maybe_unused]] const testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new InstrumentEnvironment);

} // namespace
