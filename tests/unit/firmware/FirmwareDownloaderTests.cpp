// The downloader as the transport sees it.
#include "tests/unit/firmware/AllocationLimit.h"
#include "tests/unit/firmware/FirmwareFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

using namespace firmwaretest;
using support::RecordingTrace;
using Texts = std::vector<std::string>;

namespace {

TEST_F(FirmwareDownloaderTest, NamesTheTwoTraceChannelsWhenItIsBuilt)
{
    EXPECT_EQ(transport.names, (std::vector<std::pair<std::wstring, std::int32_t>>{{L"_FirmwareDownload", 0},
                                                                                   {L"_FirmwareDebug", -1}}));
}

TEST_F(FirmwareDownloaderTest, ReadingTheFileTracesItsNameOnTheFirmwareChannel)
{
    WriteFile(100);
    EXPECT_TRUE(downloader->ReadFirmwareFile(Product, 2));
    EXPECT_EQ(RecordingTrace::Texts(),
              (Texts{"FirmwareDownloader::ReadFirmwareFile()",
                     "FirmwareDownloader::ReadFirmwareFile() firmware filename=" + FilePath().string()}));
    for (const support::TraceLine& line : RecordingTrace::Lines()) {
        EXPECT_EQ(line.device, 0);
        EXPECT_EQ(line.classMask, 0x80008U);
    }
}

TEST_F(FirmwareDownloaderTest, AProgramPathWithoutABackslashLoadsNothing)
{
    FirmwareSurroundings surroundings = Surroundings();
    surroundings.programPath = L"Program.exe";
    FirmwareDownloader lost(transport, transport, surroundings);
    EXPECT_FALSE(lost.ReadFirmwareFile(Product, 2));
    EXPECT_EQ(RecordingTrace::Texts().back(), "FirmwareDownloader::ReadFirmwareFile() firmware filename=");
    EXPECT_FALSE(lost.NeedsDownload());
}

TEST_F(FirmwareDownloaderTest, WithoutAFileNothingIsNeeded)
{
    EXPECT_FALSE(downloader->NeedsDownload());
    EXPECT_FALSE(downloader->ReadFirmwareFile(Product, 2));
    EXPECT_FALSE(downloader->NeedsDownload());
    EXPECT_FALSE(downloader->IsDownloading());
}

TEST_F(FirmwareDownloaderTest, WithAFileADownloadIsNeededAndEachQueryIsTraced)
{
    WriteFile(100);
    downloader->ReadFirmwareFile(Product, 2);
    RecordingTrace::Clear();
    EXPECT_TRUE(downloader->NeedsDownload());
    EXPECT_TRUE(downloader->NeedsDownload());
    EXPECT_FALSE(downloader->IsDownloading());
    EXPECT_EQ(RecordingTrace::Texts(), Texts(2, "FirmwareDownloader::NeedsDownload() 1"));
    Receive("anything");
    RecordingTrace::Clear();
    EXPECT_FALSE(downloader->NeedsDownload());
    EXPECT_EQ(RecordingTrace::Texts(), Texts{"FirmwareDownloader::NeedsDownload() 0"});
}

TEST_F(FirmwareDownloaderTest, AProductWithoutAFileDoesNotGetTheImageOfTheOneBeforeIt)
{
    WriteFile(100);
    EXPECT_TRUE(downloader->ReadFirmwareFile(Product, 2));
    EXPECT_FALSE(downloader->ReadFirmwareFile(Product + 1, 2));
    EXPECT_FALSE(downloader->NeedsDownload());
}

TEST_F(FirmwareDownloaderTest, DownloadTracesAndSendsPrepareDownload)
{
    WriteFile(7981);
    downloader->ReadFirmwareFile(Product, 2);
    RecordingTrace::Clear();
    downloader->Download();
    EXPECT_EQ(RecordingTrace::Texts(), (Texts{"FirmwareDownloader::Download()",
                                              "FirmwareDownloader::DownloadStart() Firmware download started"}));
    EXPECT_EQ(transport.Messages(), Texts{"PREPARE_DOWNLOAD 7981\r"});
    EXPECT_TRUE(downloader->IsDownloading());
    EXPECT_TRUE(downloader->NeedsDownload());
}

TEST_F(FirmwareDownloaderTest, AWholeDownloadAsTheInstrumentAndTheTraceSeeIt)
{
    const std::string image = Begin(7981);
    Receive("RECEIVE_READY 7981 4000\r");
    EXPECT_EQ(transport.clears, 1);
    EXPECT_EQ(RecordingTrace::Texts(),
              (Texts{"FirmwareDownloader::OnReceive RECEIVE_READY",
                     "FirmwareDownloader::DownloadImage() Firmware image download...",
                     "FirmwareDownloader::DownloadImage() Firmware image queued Offset 0 Size 3990",
                     "FirmwareDownloader::DownloadImage() Firmware image queued Offset 3990 Size 3990",
                     "FirmwareDownloader::DownloadImage() Firmware image queued Offset 7980 Size 1"}));
    for (int replies = 0; replies < 3; ++replies) {
        Receive("DOWNLOAD_OK\r");
        EXPECT_TRUE(downloader->IsDownloading());
        EXPECT_TRUE(downloader->NeedsDownload());
    }
    EXPECT_EQ(transport.Messages(),
              (Texts{Chunk(image, 0, 3990), Chunk(image, 3990, 3990), Chunk(image, 7980, 1), std::string(Done)}));
    RecordingTrace::Clear();
    Receive("DOWNLOAD_OK\r");
    EXPECT_EQ(RecordingTrace::Texts(),
              (Texts{"FirmwareDownloader::OnReceive DOWNLOAD_OK", "FirmwareDownloader::Completed()",
                     "FirmwareDownloader::Completed() setting event m_hDownloaded"}));
    EXPECT_FALSE(downloader->IsDownloading());
    EXPECT_FALSE(downloader->NeedsDownload());
}

TEST_F(FirmwareDownloaderTest, SixteenMegabytesArriveByteForByte)
{
    const std::string image = Begin(16U << 20);
    Receive("RECEIVE_READY 16777216 65535");
    while (downloader->IsDownloading()) {
        Receive("DOWNLOAD_OK");
    }
    std::string received;
    for (const std::string& message : transport.Messages()) {
        received += message == Done ? "" : message.substr(9);
    }
    EXPECT_TRUE(received == image);
}

TEST_F(FirmwareDownloaderTest, OnceDoneNoDownloadIsNeededForTheProcesssLife)
{
    Begin(100);
    Receive("RECEIVE_READY 100 4000");
    Receive("DOWNLOAD_OK");
    Receive("DOWNLOAD_OK");
    EXPECT_FALSE(downloader->NeedsDownload());
    WriteFile(200, Product, 2);
    EXPECT_TRUE(downloader->ReadFirmwareFile(Product, 2));
    EXPECT_FALSE(downloader->NeedsDownload());
    downloader->SetForDownloadOnNextConnect();
    EXPECT_FALSE(downloader->NeedsDownload());
}

TEST_F(FirmwareDownloaderTest, ThePortsAreReleasedHoweverTheDialogueEnds)
{
    for (const char* answer :
         {"DENY", "RECEIVE_READY 100 0", "RECEIVE_READY 99 4000", "RECEIVE_READY", "nonsense"})
    {
        Restart();
        Begin(100);
        EXPECT_TRUE(downloader->NeedsDownload()) << answer;
        Receive(answer);
        EXPECT_FALSE(downloader->NeedsDownload()) << answer;
        EXPECT_FALSE(downloader->IsDownloading()) << answer;
    }
    for (const char* answer : {"FIRMWARE_READY", "DOWNLOAD_FAIL", "REBOOTING", "DENY", "nonsense"}) {
        Restart();
        Begin(100);
        Receive("RECEIVE_READY 100 4000");
        EXPECT_TRUE(downloader->NeedsDownload()) << answer;
        Receive(answer);
        EXPECT_FALSE(downloader->NeedsDownload()) << answer;
        EXPECT_FALSE(downloader->IsDownloading()) << answer;
    }
}

TEST_F(FirmwareDownloaderTest, AReplyOutsideADialogueReleasesThePortsToo)
{
    WriteFile(100);
    downloader->ReadFirmwareFile(Product, 2);
    EXPECT_TRUE(downloader->NeedsDownload());
    Receive("hello");
    EXPECT_FALSE(downloader->NeedsDownload());
}

TEST_F(FirmwareDownloaderTest, NullAndEmptyRepliesAreIgnored)
{
    Begin(100);
    const std::uint8_t byte = 'D';
    downloader->OnReceive(nullptr, 4);
    downloader->OnReceive(&byte, 0);
    downloader->OnReceive(&byte, 0x80000000U); // negative, as a signed length
    downloader->OnReceive(&byte, 0xFFFFFFFFU);
    EXPECT_TRUE(downloader->IsDownloading());
    EXPECT_TRUE(RecordingTrace::Texts().empty());
}

TEST_F(FirmwareDownloaderTest, BootloaderVersion1GetsEveryChunkAtOnce)
{
    const std::string image = WriteFile(7981);
    EXPECT_TRUE(downloader->ReadFirmwareFile(Product, 1));
    downloader->Download();
    Receive("RECEIVE_READY 7981 4000");
    EXPECT_EQ(transport.Messages(), (Texts{"PREPARE_DOWNLOAD 7981\r", Chunk(image, 0, 3990),
                                           Chunk(image, 3990, 3990), Chunk(image, 7980, 1), std::string(Done)}));
    EXPECT_TRUE(downloader->IsDownloading());
    Receive("DOWNLOAD_OK");
    EXPECT_FALSE(downloader->IsDownloading());
    EXPECT_FALSE(downloader->NeedsDownload());
}

TEST_F(FirmwareDownloaderTest, OtherBootloaderVersionsGetAChunkForEachAcknowledgement)
{
    for (const std::int32_t version : {0, 2, 3, -1}) {
        Restart();
        WriteFile(7981);
        downloader->ReadFirmwareFile(Product, version);
        downloader->Download();
        Receive("RECEIVE_READY 7981 4000");
        EXPECT_EQ(transport.Messages().size(), 2U) << version;
    }
}

TEST_F(FirmwareDownloaderTest, AfterBootloaderVersion1EveryProductGetsAllChunksAtOnce)
{
    EXPECT_FALSE(downloader->ReadFirmwareFile(Product + 1, 1)); // without a file as well
    WriteFile(7981);
    EXPECT_TRUE(downloader->ReadFirmwareFile(Product, 2));
    downloader->Download();
    Receive("RECEIVE_READY 7981 4000");
    EXPECT_EQ(transport.Messages().size(), 5U);
}

TEST_F(FirmwareDownloaderTest, AFailedReadThatDeliveredEveryByteDownloadsNothing)
{
    Restart([](HANDLE file, void* to, DWORD size, DWORD* count, OVERLAPPED*) -> BOOL {
        EXPECT_TRUE(::ReadFile(file, to, size, count, nullptr));
        return FALSE;
    });
    WriteFile(100);
    EXPECT_FALSE(downloader->ReadFirmwareFile(Product, 2));
    EXPECT_FALSE(downloader->NeedsDownload());
    EXPECT_EQ(RecordingTrace::Count("Completed"), 0U);
}

TEST_F(FirmwareDownloaderTest, AReadThatFailsEarlierDownloadsThePartThatWasRead)
{
    Restart([](HANDLE file, void* to, DWORD, DWORD* count, OVERLAPPED*) -> BOOL {
        EXPECT_TRUE(::ReadFile(file, to, 40, count, nullptr));
        return FALSE;
    });
    const std::string image = WriteFile(100);
    EXPECT_TRUE(downloader->ReadFirmwareFile(Product, 2));
    EXPECT_TRUE(downloader->NeedsDownload());
    downloader->Download();
    Receive("RECEIVE_READY 40 4000");
    EXPECT_EQ(transport.Messages(), (Texts{"PREPARE_DOWNLOAD 40\r", Chunk(image, 0, 40)}));
}

TEST_F(FirmwareDownloaderTest, AnImageThatMemoryDoesNotHoldIsNotNeeded)
{
    WriteFile(1U << 20);
    {
        const AllocationLimit limit(100'000);
        EXPECT_FALSE(downloader->ReadFirmwareFile(Product, 2));
    }
    EXPECT_FALSE(downloader->NeedsDownload());
}

TEST_F(FirmwareDownloaderTest, AChunkThatMemoryDoesNotHoldEndsTheDialogue)
{
    Begin(1U << 20);
    {
        const AllocationLimit limit(100'000);
        Receive("RECEIVE_READY 1048576 2147483647");
    }
    EXPECT_FALSE(downloader->IsDownloading());
    EXPECT_FALSE(downloader->NeedsDownload());
    EXPECT_TRUE(transport.Messages().empty());
    EXPECT_EQ(RecordingTrace::Count("FirmwareDownloader::Completed() setting event m_hDownloaded"), 1U);
}

TEST_F(FirmwareDownloaderTest, AfterAnUnplugTheDownloadBeginsAtTheFirstByte)
{
    const std::string image = Begin(7981);
    Receive("RECEIVE_READY 7981 4000");
    Receive("DOWNLOAD_OK");
    EXPECT_TRUE(downloader->IsDownloading());

    EXPECT_TRUE(downloader->ReadFirmwareFile(Product, 2));
    EXPECT_TRUE(downloader->NeedsDownload());
    transport.Forget();
    downloader->Download();
    Receive("RECEIVE_READY 7981 1000");
    EXPECT_EQ(transport.Messages(), (Texts{"PREPARE_DOWNLOAD 7981\r", Chunk(image, 0, 990)}));
    while (downloader->IsDownloading()) {
        Receive("DOWNLOAD_OK");
    }
    EXPECT_EQ(transport.Messages().size(), 1U + 9 + 1);
    EXPECT_FALSE(downloader->NeedsDownload());
}

TEST_F(FirmwareDownloaderTest, SetForDownloadOnNextConnectTracesAndForgetsTheDialogue)
{
    Begin(100);
    EXPECT_TRUE(downloader->IsDownloading());
    downloader->SetForDownloadOnNextConnect();
    EXPECT_EQ(RecordingTrace::Texts(), Texts{"FirmwareDownloader::SetForDownloadOnNextConnect()"});
    EXPECT_FALSE(downloader->IsDownloading());
    EXPECT_TRUE(downloader->NeedsDownload());
    EXPECT_TRUE(transport.Messages().empty());
}

TEST_F(FirmwareDownloaderTest, AQueryAfterMoreThan3000MsSendsPrepareDownloadAgain)
{
    Begin(100);
    clockNow += 3000;
    EXPECT_TRUE(downloader->NeedsDownload());
    EXPECT_TRUE(transport.Messages().empty());
    RecordingTrace::Clear();
    clockNow += 1;
    EXPECT_TRUE(downloader->NeedsDownload());
    EXPECT_EQ(transport.Messages(), Texts{"PREPARE_DOWNLOAD 100\r"});
    EXPECT_EQ(
        RecordingTrace::Texts(),
        (Texts{"FirmwareDownloader::NeedsDownload() retry reached, sending E_DOWNLOAD_START to try and resync",
               "FirmwareDownloader::DownloadStart() Firmware download started",
               "FirmwareDownloader::NeedsDownload() 1"}));
}

TEST_F(FirmwareDownloaderTest, ASilentInstrumentGetsThreeMoreAndThePortsWait)
{
    Begin(100);
    for (int query = 0; query < 20; ++query) {
        clockNow += 3001;
        EXPECT_TRUE(downloader->NeedsDownload());
    }
    EXPECT_EQ(transport.Messages(), Texts(3, "PREPARE_DOWNLOAD 100\r"));
    EXPECT_TRUE(downloader->IsDownloading());
    EXPECT_EQ(RecordingTrace::Count("max numer"), 0U);

    downloader->Download();
    clockNow += 3001;
    EXPECT_TRUE(downloader->NeedsDownload());
    EXPECT_EQ(transport.Messages().size(), 5U);
}

TEST_F(FirmwareDownloaderTest, AQueryFromInsideASubmissionNeitherWaitsNorSends)
{
    Restart();
    WriteFile(7981);
    downloader->ReadFirmwareFile(Product, 1);
    downloader->Download();
    transport.Forget();
    clockNow += 10'000; // a re-send would be due while the chunks go out
    int queries = 0;
    transport.onSubmit = [this, &queries](const std::string&) {
        EXPECT_TRUE(downloader->NeedsDownload());
        EXPECT_TRUE(downloader->IsDownloading());
        ++queries;
    };
    Receive("RECEIVE_READY 7981 4000");
    EXPECT_EQ(queries, 4);
    EXPECT_EQ(transport.Messages().size(), 4U);
}

} // namespace
