// FinishDataXfer over records and request blocks made by hand: what a driver or Windows may leave in them.
#include "tests/unit/usb/UsbFixture.h"

#include <numeric>

namespace usbtest {

namespace {

constexpr std::uint32_t Room = 10;

/// An endpoint without a device. A record whose status is final is all that GetOverlappedResult looks at.
class FinishByHand : public testing::Test
{
protected:
    explicit FinishByHand(std::uint8_t address = In)
        : endpoint(INVALID_HANDLE_VALUE, {.length = 7, .type = 5, .address = address, .attributes = 2})
    {
    }
    /// The data of each block counts on from the header's size.
    void MakeBlock(const usb::TransferHeader& header = {})
    {
        block = std::make_unique<usb::RequestBlock>(header, Room);
        const std::span<std::uint8_t> data = block->Part(usb::TransferHeaderSize, Room);
        std::iota(data.begin(), data.end(), std::uint8_t{usb::TransferHeaderSize});
    }
    void SetUp() override { MakeBlock(); }
    void SetStatuses(std::uint32_t ntStatus, std::uint32_t usbdStatus)
    {
        MakeBlock({.ntStatus = ntStatus, .usbdStatus = usbdStatus});
    }
    void MakeBuffered() { MakeBlock({.dataOffset = usb::TransferHeaderSize, .dataLength = Room}); }
    Outcome Finish()
    {
        Outcome outcome;
        outcome.length = Room;
        buffer.assign(Room + 20, 0xEE);
        ::SetLastError(12345);
        outcome.worked = endpoint.FinishDataXfer(buffer.data(), outcome.length, &overlapped, block.release());
        outcome.lastError = ::GetLastError();
        return outcome;
    }
    bool IsUntouchedFrom(std::size_t offset) const
    {
        return std::all_of(buffer.begin() + static_cast<std::ptrdiff_t>(offset), buffer.end(),
                           [](std::uint8_t byte) { return byte == 0xEE; });
    }

    CCyBulkEndPoint endpoint;
    OVERLAPPED overlapped{};
    std::unique_ptr<usb::RequestBlock> block;
    Bytes buffer;
};

} // namespace

TEST_F(FinishByHand, TakesTheCountOfARequestThatHasEnded)
{
    overlapped.InternalHigh = 7;
    const Outcome outcome = Finish();
    EXPECT_TRUE(outcome.worked);
    EXPECT_EQ(outcome.length, 7u);
    EXPECT_EQ(outcome.lastError, DWORD{ERROR_SUCCESS});
}

TEST_F(FinishByHand, BadStatusesAloneAreAFailureWithAnErrorOfWindows)
{
    for (const auto& [nt, usbd] : {std::pair{0xC0000001u, 0u}, std::pair{0u, 0xC0000004u}}) {
        SetStatuses(nt, usbd);
        overlapped.InternalHigh = 7;
        const Outcome outcome = Finish();
        EXPECT_FALSE(outcome.worked);
        EXPECT_EQ(outcome.lastError, DWORD{ERROR_GEN_FAILURE});
        EXPECT_EQ(endpoint.NtStatus(), nt);
        EXPECT_EQ(endpoint.UsbdStatus(), usbd);
    }
}

TEST_F(FinishByHand, ACountBeyondTheRoomOfADirectReadIsNotBelieved)
{
    overlapped.InternalHigh = 60'000;
    const Outcome outcome = Finish();
    EXPECT_TRUE(outcome.worked);
    EXPECT_EQ(outcome.length, Room);
    EXPECT_TRUE(IsUntouchedFrom(0)) << "a direct read has its data in place";
}

TEST_F(FinishByHand, ACountBeyondABufferedBlockIsNotBelieved)
{
    MakeBuffered();
    overlapped.InternalHigh = 60'000;
    const Outcome outcome = Finish();
    EXPECT_TRUE(outcome.worked);
    EXPECT_EQ(outcome.length, Room);
    EXPECT_EQ(buffer[0], 38);
    EXPECT_EQ(buffer[Room - 1], 47);
    EXPECT_TRUE(IsUntouchedFrom(Room));
}

TEST_F(FinishByHand, ACountBelowTheHeaderOfABufferedBlockIsNone)
{
    MakeBuffered();
    overlapped.InternalHigh = 20;
    const Outcome outcome = Finish();
    EXPECT_TRUE(outcome.worked);
    EXPECT_EQ(outcome.length, 0u);
    EXPECT_TRUE(IsUntouchedFrom(0));
}

TEST_F(FinishByHand, ARefusalCountsWhateverStandsInTheRecord)
{
    for (const ULONG_PTR status : {ULONG_PTR{0}, ULONG_PTR{STATUS_PENDING}, ULONG_PTR{0xC0000185}}) {
        MakeBlock();
        block->refusal = ERROR_IO_DEVICE;
        overlapped.Internal = status;
        overlapped.InternalHigh = 7;
        const Outcome outcome = Finish();
        EXPECT_FALSE(outcome.worked) << status;
        EXPECT_EQ(outcome.lastError, DWORD{ERROR_IO_DEVICE}) << status;
        EXPECT_EQ(outcome.length, 0u) << status;
        EXPECT_EQ(endpoint.BytesTransferred(), 0u) << status;
    }
}

TEST_F(FinishByHand, ARefusalWithoutAnErrorOfWindowsIsAFailureToo)
{
    block->refusal = ERROR_SUCCESS;
    overlapped.InternalHigh = 7;
    const Outcome outcome = Finish();
    EXPECT_FALSE(outcome.worked);
    EXPECT_EQ(outcome.lastError, DWORD{ERROR_SUCCESS});
}

TEST_F(FinishByHand, ARequestDoneAtOnceNeedsNoRecord)
{
    block->returnedAtOnce = 5;
    overlapped.Internal = STATUS_PENDING;
    const Outcome outcome = Finish();
    EXPECT_TRUE(outcome.worked);
    EXPECT_EQ(outcome.length, 5u);
}

TEST_F(FinishByHand, APendingRequestStaysTheCallers)
{
    overlapped.Internal = STATUS_PENDING;
    usb::RequestBlock* const kept = block.get();
    const Outcome outcome = Finish();
    EXPECT_FALSE(outcome.worked);
    EXPECT_EQ(outcome.lastError, DWORD{ERROR_IO_INCOMPLETE});
    block.reset(kept);
}

} // namespace usbtest
