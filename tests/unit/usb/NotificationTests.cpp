// A device that is constructed with a window asks Windows for device notifications and ends that again.
#include "tests/unit/usb/UsbFixture.h"

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

TEST_F(Notifications, AreRegisteredAndEndedWithoutComplaint)
{
    bus.Plug(0, Instrument());
    UsbDevice watching(window, InstrumentInterface, true);
    EXPECT_TRUE(watching.IsOpen());
    EXPECT_NO_THROW(watching.Close());
    EXPECT_TRUE(watching.Open(0));
    EXPECT_NO_THROW(watching.Close());
    EXPECT_NO_THROW(watching.Unregister());
    EXPECT_NO_THROW(watching.Unregister()) << "there is nothing left to end";
}

TEST_F(Notifications, WithoutAWindowThereIsNothingToEnd)
{
    Connect();
    EXPECT_NO_THROW(device.Close());
    EXPECT_NO_THROW(device.Unregister());
}

} // namespace usbtest
