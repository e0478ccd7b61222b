// A device that is constructed with a window asks Windows for device notifications and ends that again.
#include "tests/unit/usb/Hooks.h"
#include "tests/unit/usb/UsbFixture.h"

#include <dbt.h>

namespace usbtest {

class Notifications : public UsbTest
{
protected:
    void SetUp() override
    {
        UsbTest::SetUp();
        window = ::CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
        ASSERT_NE(window, nullptr);
    }
    void TearDown() override
    {
        ::DestroyWindow(window);
        UsbTest::TearDown();
    }

    HWND window = nullptr;
};

TEST_F(Notifications, OfTheClassLastFromConstructionToUnregister)
{
    UsbDevice watching(window, InstrumentInterface, false);
    const std::vector<Registration> made = Registrations();
    ASSERT_EQ(made.size(), 1u);
    EXPECT_NE(made[0].handle, nullptr) << "Windows took it";
    EXPECT_EQ(made[0].recipient, window);
    EXPECT_EQ(made[0].type, DWORD{DBT_DEVTYP_DEVICEINTERFACE});
    EXPECT_EQ(made[0].classGuid, InstrumentInterface);
    EXPECT_NO_THROW(watching.Unregister());
    EXPECT_TRUE(Registrations().empty());
    EXPECT_NO_THROW(watching.Unregister()) << "there is nothing left to end";
}

TEST_F(Notifications, OfTheDeviceLastFromOpenToClose)
{
    bus.Plug(0, Instrument());
    UsbDevice watching(window, InstrumentInterface, true);
    ASSERT_TRUE(watching.IsOpen());
    const std::vector<Registration> made = Registrations();
    ASSERT_EQ(made.size(), 2u);
    EXPECT_EQ(made[1].recipient, window);
    EXPECT_EQ(made[1].type, DWORD{DBT_DEVTYP_HANDLE});
    EXPECT_EQ(made[1].device, watching.Handle());
    EXPECT_NO_THROW(watching.Close());
    EXPECT_EQ(Registrations().size(), 1u);
    EXPECT_TRUE(watching.Open(0));
    EXPECT_EQ(Registrations().size(), 2u);
}

TEST_F(Notifications, EndWithTheDeviceObject)
{
    bus.Plug(0, Instrument());
    {
        const UsbDevice watching(window, InstrumentInterface, true);
        EXPECT_EQ(Registrations().size(), 2u);
    }
    EXPECT_TRUE(Registrations().empty());
}

TEST_F(Notifications, WithoutAWindowAreNotAskedFor)
{
    Connect();
    EXPECT_TRUE(Registrations().empty());
    EXPECT_NO_THROW(device.Close());
    EXPECT_NO_THROW(device.Unregister());
}

} // namespace usbtest
