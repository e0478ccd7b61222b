// The request block and the list of abandoned transfers, without a driver.
#include "tests/unit/usb/UsbFixture.h"

#include <algorithm>

namespace usbtest {

TEST(RequestBlock, IsZeroedAndOfTheRightSize)
{
    for (std::size_t trailing : {0u, 1u, 1'000u}) {
        usb::RequestBlock block({}, trailing);
        ASSERT_EQ(block.Bytes().size(), 38 + trailing);
        EXPECT_TRUE(std::all_of(block.Bytes().begin(), block.Bytes().end(), [](int byte) { return byte == 0; }));
        EXPECT_FALSE(block.refusal);
    }
}

TEST(RequestBlock, HeaderFieldsLieWhereTheDriverExpectsThem)
{
    usb::TransferHeader header{};
    header.requestType = 0x01;
    header.request = 0x02;
    header.value = 0x0403;
    header.index = 0x0605;
    header.setupLength = 0x0807;
    header.timeoutSeconds = 0x0C0B0A09;
    header.endpointAddress = 0x0E;
    header.ntStatus = 0x1211100F;
    header.usbdStatus = 0x16151413;
    header.isoPacketOffset = 0x1A191817;
    header.isoPacketLength = 0x1E1D1C1B;
    header.dataOffset = 0x2221201F;
    header.dataLength = 0x26252423;
    const usb::RequestBlock block(header);
    Bytes expected(38);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        expected[i] = static_cast<std::uint8_t>(i + 1);
    }
    expected[12] = 0; // reserved
    EXPECT_EQ(Bytes(block.Bytes().begin(), block.Bytes().end()), expected);
    const std::uint32_t dataLength = block.Header().dataLength; // a copy: the packed field is not aligned
    EXPECT_EQ(dataLength, 0x26252423u);
}

TEST(RequestBlock, APartNeverReachesOutside)
{
    usb::RequestBlock block({}, 10);
    EXPECT_EQ(block.Part(38, 10).size(), 10u);
    EXPECT_EQ(block.Part(38, 11).size(), 10u);
    EXPECT_EQ(block.Part(47, 0xFFFFFFFF).size(), 1u);
    EXPECT_EQ(block.Part(48, 1).size(), 0u);
    EXPECT_EQ(block.Part(0xFFFFFFFF, 0xFFFFFFFF).size(), 0u);
}

namespace {

/// A transfer in the state that the driver has given it, which says at its end that it was freed.
std::unique_ptr<usb::Transfer> InState(ULONG_PTR status, int& freed)
{
    struct Packet
    {
        explicit Packet(int& counter) : m_counter(counter) {}
        ~Packet() { ++m_counter; }
        int& m_counter;
    };
    auto transfer = std::make_unique<usb::Transfer>();
    transfer->pending = true;
    transfer->overlapped.Internal = status;
    transfer->packet = usb::Keep(std::make_unique<Packet>(freed));
    return transfer;
}

constexpr ULONG_PTR Pending = STATUS_PENDING;
constexpr ULONG_PTR Cancelled = 0xC0000120;
constexpr DWORD PatienceMs = 20'000;

} // namespace

TEST(AbandonedTransfers, AreFreedOnceTheirCompletionIsSeen)
{
    int freed = 0;
    usb::AbandonedTransfers list;
    std::vector<usb::Transfer*> transfers;
    for (int i = 0; i < 5; ++i) {
        auto transfer = InState(Pending, freed);
        transfers.push_back(transfer.get());
        list.Add(std::move(transfer));
    }
    EXPECT_EQ(list.Count(), 5u);
    transfers[0]->overlapped.Internal = Cancelled; // the last of the list
    transfers[2]->overlapped.Internal = 0;         // in the middle
    transfers[4]->overlapped.Internal = Cancelled; // the first
    list.Sweep();
    EXPECT_EQ(list.Count(), 2u);
    EXPECT_EQ(freed, 3);
    list.Add(InState(Cancelled, freed));
    EXPECT_EQ(freed, 4);
    EXPECT_EQ(list.Count(), 2u);
    transfers[1]->overlapped.Internal = 0;
    transfers[3]->overlapped.Internal = 0;
    list.WaitForAll(PatienceMs);
    EXPECT_EQ(freed, 6);
    EXPECT_EQ(list.Count(), 0u);
}

TEST(AbandonedTransfers, ThatWereRefusedOrNeverStartedAreFreedAtOnce)
{
    int freed = 0;
    usb::AbandonedTransfers list;
    auto refused = InState(Pending, freed);
    refused->pending = false; // whatever a refused start has left in the record
    list.Add(std::move(refused));
    auto idle = InState(0, freed);
    idle->pending = false;
    list.Add(std::move(idle));
    EXPECT_EQ(freed, 2);
}

TEST(AbandonedTransfers, AreGivenUpButNotFreedWhenTheDriverKeepsThem)
{
    int freed = 0;
    usb::Transfer* kept = nullptr;
    {
        usb::AbandonedTransfers list;
        auto transfer = InState(Pending, freed);
        kept = transfer.get();
        list.Add(std::move(transfer));
        const ULONGLONG begin = ::GetTickCount64();
        list.WaitForAll(50);
        EXPECT_GE(::GetTickCount64() - begin, 40u);
        EXPECT_EQ(list.Count(), 1u);
    }
    EXPECT_EQ(freed, 0);
    kept->overlapped.Internal = Cancelled; // what the driver might do at any time
    delete kept;                           // only a test may know that no driver writes there any more
    EXPECT_EQ(freed, 1);
}

TEST(AbandonedTransfers, AreFreedByTheThousandWithoutRecursion)
{
    int freed = 0;
    usb::AbandonedTransfers list;
    std::vector<usb::Transfer*> transfers;
    for (int i = 0; i < 100'000; ++i) {
        auto transfer = InState(Pending, freed);
        transfers.push_back(transfer.get());
        transfer->next = nullptr;
        list.Add(std::move(transfer));
        if (transfers.size() == 1'000) {
            for (usb::Transfer* each : transfers) {
                each->overlapped.Internal = 0;
            }
            transfers.clear();
        }
    }
    list.WaitForAll(PatienceMs);
    EXPECT_EQ(freed, 100'000);
}

TEST(AbandonedTransfers, OfSeveralListsCanBeJoined)
{
    int freed = 0;
    usb::AbandonedTransfers list;
    std::vector<usb::Transfer*> transfers;
    {
        usb::AbandonedTransfers other;
        for (usb::AbandonedTransfers* each : {&list, &other, &other}) {
            auto transfer = InState(Pending, freed);
            transfers.push_back(transfer.get());
            each->Add(std::move(transfer));
        }
        list.AddAll(other);
        EXPECT_EQ(other.Count(), 0u);
    }
    EXPECT_EQ(list.Count(), 3u);
    for (usb::Transfer* each : transfers) {
        each->overlapped.Internal = Cancelled;
    }
    list.Sweep();
    EXPECT_EQ(freed, 3);
    EXPECT_EQ(list.Count(), 0u);
}

TEST(AbandonedTransfers, AreFullAtTheirLimitUntilTheDriverLetsGo)
{
    int freed = 0;
    usb::AbandonedTransfers list;
    usb::Transfer* last = nullptr;
    std::vector<usb::Transfer*> transfers;
    while (list.Count() < usb::AbandonedTransfers::Limit) {
        EXPECT_FALSE(list.IsFull());
        auto transfer = InState(Pending, freed);
        last = transfer.get();
        transfers.push_back(last);
        list.Add(std::move(transfer));
    }
    EXPECT_TRUE(list.IsFull());
    last->overlapped.Internal = 0;
    EXPECT_FALSE(list.IsFull());
    for (std::size_t i = 0; i + 1 < transfers.size(); ++i) {
        transfers[i]->overlapped.Internal = 0;
    }
}

} // namespace usbtest
