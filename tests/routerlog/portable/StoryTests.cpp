// What the account makes of lines, one circumstance each. That real logs are understood is shown with the real
// router.
#include "tests/routerlog/portable/Logs.h"
#include "tools/RouterLog/report/Sentences.h"
#include "tools/RouterLog/report/TextReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace routerlog;
using routerlogtest::KindsOf;
using routerlogtest::LogText;
using routerlogtest::Take;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char* Begin = "******** Begin Logging ********";
constexpr const char* End = "********* End Logging *********";
constexpr const char* Terminating = "********* Debug Tracer Terminating *********";
constexpr const char* UsbStarted = "CCyUSBDriver::USBCommandProcessThread() started";
constexpr const char* Opened = "Connection to USB opened, BULK IN on Pipe 2 and OUT on Pipe 1";
constexpr const char* Connected = "CCyUSBDriver::NotifyState(Connected)";
constexpr const char* NotConnected = "CCyUSBDriver::NotifyState(Not Connected)";

class Story : public testing::Test
{
protected:
    void Run(const LogText& log)
    {
        Take(account, log.Text());
        account.Finish();
    }
    std::string Sentence(std::size_t index) const { return SentenceOf(account.Incidents().InOrder().at(index)); }

    Account account;
};

TEST_F(Story, OfAWholeLifeTellsItsSteps)
{
    Run(LogText()
            .At(0, Begin)
            .At(1, "_FirmwareDebug, DebugOptions=0x380000")
            .At(5, UsbStarted)
            .At(6, NotConnected)
            .At(1006, Opened)
            .At(1007, Connected)
            .At(3000, "CMorvaneUSBRouter::CMorvaneUSBRouter()")
            .At(9000, "CMorvaneUSBRouter::~CMorvaneUSBRouter()")
            .Bare(Terminating)
            .At(9010, End));
    EXPECT_THAT(KindsOf(account), ElementsAre("router-started", "instrument-connected", "program-came",
                                              "program-went", "router-ended"));
    EXPECT_EQ(Sentence(0), "The router started, to be used over USB.");
    EXPECT_EQ(Sentence(1), "The instrument was connected, 1.001 s after the router began to look for it.");
    EXPECT_EQ(Sentence(4), "The router ended, because the last program had released it.");
}

TEST_F(Story, OfAnUnpluggedInstrumentTellsForHowLong)
{
    Run(LogText()
            .At(0, Begin)
            .At(5, UsbStarted)
            .At(10, Opened)
            .At(5010, "Reply-receive failed(31), reconnecting...")
            .At(5011, NotConnected)
            .At(5015, "Connection to USB failed")
            .At(8010, Opened)
            .At(8011, Connected));
    EXPECT_THAT(KindsOf(account), ElementsAre("router-started", "instrument-connected", "instrument-lost",
                                              "instrument-reconnected"));
    EXPECT_EQ(Sentence(2), "The instrument was unplugged or went away, after 5.000 s of connection (noticed while "
                           "reading, Windows error 31: the device does not work).");
    EXPECT_EQ(Sentence(3), "The instrument was reconnected after 3.000 s.");
}

TEST_F(Story, OfAFailedWriteWithoutErrorIsNoLostConnection)
{
    Run(LogText()
            .At(0, Begin)
            .At(5, UsbStarted)
            .At(10, Opened)
            .At(20, "Command-sent failed, reconnecting")
            .At(30, "CCyUSBDriver::USBCommandProcessThread overlapped write 20 bytes"));
    EXPECT_THAT(KindsOf(account), ElementsAre("router-started", "instrument-connected"));
}

TEST_F(Story, OfGapsCountsThemModulo256)
{
    constexpr const char* gap = "CCyUSBDriver::DispatchToDevice() Packet has packet number ";
    Run(LogText()
            .At(0, std::string(gap) + "4, expect 3")
            .At(1, std::string(gap) + "0, expect 256")
            .At(2, std::string(gap) + "2, expect 256")
            .At(3, std::string(gap) + "1, expect 250")
            .At(4, std::string(gap) + "5, expect 6"));
    const std::vector<Incident> incidents = account.Incidents().InOrder();
    ASSERT_EQ(incidents.size(), 4U);
    EXPECT_EQ(incidents[0].count, 1);
    EXPECT_EQ(incidents[1].count, 2);
    EXPECT_EQ(incidents[2].count, 7);
    EXPECT_EQ(incidents[3].count, 255);
    EXPECT_EQ(Sentence(0),
              "Gap of 1 packet (modulo 256) in the instrument's numbering: number 4 came where 3 was due.");
}

TEST_F(Story, OfTheSkippedPacketLogLeavesOutWhatIsTraced)
{
    LogText log;
    log.At(0, "CCyUSBDriver::DispatchToDevice() Packet has packet number 4, expect 3");
    Take(account, log.Text());
    Take(account,
         "[03/07/26 14:00:00]  Previous Packet#   2  Current Packet# 4  \n"
         "[03/07/26 14:00:00]  Previous Packet#   255  Current Packet# 0  \n"
         "[03/07/26 15:00:00]  Previous Packet#   7  Current Packet# 9  \n",
         "skipped.log");
    account.Finish();
    EXPECT_THAT(KindsOf(account), ElementsAre("number-gap", "number-gap"));
    EXPECT_THAT(Sentence(1), HasSubstr("number 9 came where 8 was due (from the skipped-packet log)"));
    EXPECT_EQ(account.Skipped().Entries(), 3U);
    EXPECT_EQ(account.Skipped().WrapsToZero(), 1U);
}

TEST_F(Story, OfASlowClientTellsForHowLongAndForWhom)
{
    LogText log;
    log.At(0, "(\\\\.\\pipe\\Reader.v2) Pipe connected").At(100, "DEV->PCR[03,01][001] A ");
    for (int at = 1000; at <= 3000; at += 100) {
        log.At(at, "CCDevicePortPipe::PipeProcessThread(\\\\.\\pipe\\Reader.v2) Write permission denied, " +
                       std::to_string(at / 100) + " To-Device packets, 0 From-Device packets");
    }
    log.At(3100, "DEV<-PCR[03,01][001] A ").At(9000, "DEV<-PCR[03,01][001] A ");
    Run(log);
    EXPECT_THAT(KindsOf(account), ElementsAre("client-came", "client-stalled"));
    EXPECT_EQ(Sentence(1),
              "The client of (3,1), pipe Reader.v2 stopped reading for 2.200 s; up to 30 packets waited for it.");
}

TEST_F(Story, FindsOutWhichPipeIsWhosePort)
{
    Run(LogText()
            .At(0, "(\\\\.\\pipe\\a) Pipe connected")
            .At(1, "(\\\\.\\pipe\\b) Pipe connected")
            .At(2, "DEV->PCR[03,01][001] A ")
            .At(3, "DEV->PCR[04,02][001] A ")
            .At(4, "CCDevicePortPipe::PipeProcessThread (\\\\.\\pipe\\b) Read Pipe Broken (109)")
            .At(5, "DEV->PCR[03,01][001] A ")
            .At(6, "(\\\\.\\pipe\\b) Pipe connected")
            .At(7, "DEV->PCR[04,02][001] A ")
            .At(8, "CCDevicePortPipe::PipeProcessThread (\\\\.\\pipe\\a) Read Pipe Broken (109)"));
    EXPECT_THAT(Sentence(2), HasSubstr("The client of pipe b went away"));
    EXPECT_THAT(Sentence(4), HasSubstr("The client of (3,1), pipe a went away"));
}

TEST_F(Story, OfFirmwareTellsTheTimeAndTheSize)
{
    Run(LogText()
            .At(0, "FirmwareDownloader::Download()")
            .At(0, "FirmwareDownloader::DownloadStart() Firmware download started")
            .At(100, "FirmwareDownloader::OnReceive RECEIVE_READY")
            .At(100, "FirmwareDownloader::DownloadImage() Firmware image queued Offset 0 Size 3990")
            .At(100, "FirmwareDownloader::DownloadImage() Firmware image queued Offset 3990 Size 10")
            .At(200, "FirmwareDownloader::OnReceive DOWNLOAD_OK")
            .At(300, "FirmwareDownloader::OnReceive DOWNLOAD_OK")
            .At(400, "FirmwareDownloader::OnReceive DOWNLOAD_OK")
            .At(400, "FirmwareDownloader::Completed()"));
    EXPECT_EQ(Sentence(0), "Firmware downloaded in 0.400 s (4,000 bytes in 2 chunks).");
}

TEST_F(Story, OfAnUnknownAnswerIsNoDownload)
{
    Run(LogText()
            .At(0, "FirmwareDownloader::DownloadStart() Firmware download started")
            .At(100, "FirmwareDownloader::OnReceive RECEIVE_READY")
            .At(100, "FirmwareDownloader::DownloadImage() Firmware image queued Offset 0 Size 3990")
            .At(100, "FirmwareDownloader::DownloadImage() Firmware image queued Offset 3990 Size 10")
            .At(200, "FirmwareDownloader::OnReceive DOWNLOAD_OK")
            .At(250, "FirmwareDownloader::Completed()"));
    EXPECT_THAT(KindsOf(account), ElementsAre("firmware-failed"));
}

TEST_F(Story, OfAKilledRouterSaysThatItVanished)
{
    Run(LogText().At(0, Begin).At(5, UsbStarted).At(10, Opened).At(60'000, Begin).At(60'005, UsbStarted));
    EXPECT_THAT(KindsOf(account),
                ElementsAre("router-started", "instrument-connected", "router-vanished", "router-started"));
}

TEST_F(Story, OfTracingTurnedOffAndOnIsNoRestart)
{
    Run(LogText()
            .At(0, Begin)
            .At(5, UsbStarted)
            .At(10, End)
            .At(5000, Begin)
            .At(5001, "CCyUSBDriver::ReplyProcessThread()IDLE"));
    EXPECT_THAT(KindsOf(account), ElementsAre("router-started", "tracing-off", "tracing-on"));
}

TEST_F(Story, OfRotatedFilesIsOne)
{
    Take(account, LogText().At(0, Begin).At(5, UsbStarted).Bare("********* To Be Continued *****").Text(),
         "a.log.BAK");
    Take(account, LogText().Bare("********** Continued **********").At(10, Opened).Text(), "a.log");
    account.Finish();
    EXPECT_THAT(KindsOf(account), ElementsAre("router-started", "instrument-connected"));
}

TEST_F(Story, OfFilesThatDoNotBelongTogetherSaysSo)
{
    Take(account, LogText().At(0, Begin).At(5, UsbStarted).Text(), "a.log.BAK");
    Take(account, LogText().Bare("********** Continued **********").At(10, Opened).Text(), "a.log");
    account.Finish();
    EXPECT_THAT(KindsOf(account), ElementsAre("router-started", "lines-missing", "instrument-connected"));
}

TEST_F(Story, OfAClockSetBackSaysByHowMuch)
{
    Run(LogText().At(0, Begin).At(3'600'000, UsbStarted).At(10, Opened));
    EXPECT_THAT(KindsOf(account), ElementsAre("router-started", "clock-set-back", "instrument-connected"));
    EXPECT_THAT(Sentence(1), HasSubstr("set back by 59 min 59 s"));
}

TEST_F(Story, OfALongSilenceSaysForHowLong)
{
    Run(LogText().At(0, Begin).At(5, UsbStarted).At(10, Opened).At(30'010, NotConnected));
    EXPECT_THAT(KindsOf(account),
                ElementsAre("router-started", "instrument-connected", "nothing-traced", "instrument-lost"));
    EXPECT_THAT(Sentence(2), HasSubstr("Nothing was traced for 30.0 s"));
}

TEST_F(Story, OfLinesLostForLongIsNoSilence)
{
    Run(LogText().At(0, Begin).At(5, UsbStarted).At(10, Opened).At(30'010, "Buffer overflow, removing 9 entries"));
    EXPECT_THAT(KindsOf(account), ElementsAre("router-started", "instrument-connected", "log-overflow"));
}

TEST_F(Story, OfLostLinesSaysHowMany)
{
    Run(LogText()
            .At(0, Begin)
            .At(5, UsbStarted)
            .At(9, "Buffer overflow, removing 10001 entries")
            .Bare(Terminating)
            .Bare("********* 500 Entries Not Yet Processed ********* ")
            .At(10, End));
    EXPECT_THAT(Sentence(1), HasSubstr("10,001 lines are missing here"));
    EXPECT_THAT(account.Incidents().InOrder(), testing::SizeIs(4));
    EXPECT_THAT(TextReport(account), HasSubstr("500 lines could not be written before the router ended."));
}

TEST_F(Story, OfAnswersPairsThemWithTheirRequests)
{
    LogText log;
    for (int i = 0; i < 100; ++i) {
        log.At(i * 1000, "DEV->PCR[03,01][010] A ")
            .At(i * 1000 + (i == 99 ? 500 : i / 10), "DEV<-PCR[03,01][020] B ");
    }
    log.At(100'500, "DEV<-PCR[03,01][020] B ");
    Run(log);
    const PortTraffic& port = *account.Ports().Traffic().at({3, 1});
    EXPECT_EQ(port.requests, 100U);
    EXPECT_EQ(port.requestBytes, 1000U);
    EXPECT_EQ(port.replies, 101U);
    EXPECT_EQ(port.unasked, 1U);
    EXPECT_EQ(port.answerTimes.Quantile(0.5), 4);
    EXPECT_EQ(port.answerTimes.Quantile(0.99), 9);
    EXPECT_EQ(port.answerTimes.Longest(), 500);
}

TEST_F(Story, SaysNotTracedInsteadOfNothing)
{
    Run(LogText().At(0, Begin).At(1, End));
    const std::string report = TextReport(account);
    EXPECT_THAT(report, HasSubstr("Instrument  not traced"));
    EXPECT_THAT(report, HasSubstr("Requests, replies, bytes and answer times: not traced"));
    EXPECT_THAT(report, HasSubstr("doctor --trace-on usb,firmware,pipe,packets,dispatch,raw"));
}

TEST_F(Story, OfNoLineOfTheRouterSaysSo)
{
    Run(LogText().Bare("no log"));
    EXPECT_THAT(TextReport(account), HasSubstr("Router      The log has no line of the router."));
}

TEST_F(Story, CountsAndShowsLinesOfOthers)
{
    Run(LogText().At(0, Begin).Bare("what is \xFF this").At(1, "PCR->USB[12").Bare("").Bare(UsbStarted));
    EXPECT_EQ(account.ForeignLineCount(), 3U);
    EXPECT_THAT(TextReport(account), HasSubstr("what is \\xFF this"));
}

TEST_F(Story, OfMoreIncidentsThanAreKeptCountsTheRest)
{
    LogText log;
    for (int i = 0; i < 20'000; ++i) {
        log.At(i, "CCyUSBDriver::DispatchToDevice() Packet has packet number 4, expect 3");
    }
    Run(log);
    EXPECT_EQ(account.Incidents().InOrder().size(), 2 * IncidentLog::KeptAtEachEnd);
    EXPECT_EQ(account.Incidents().LeftOut(), 10'000U);
    EXPECT_THAT(TextReport(account), HasSubstr("10,000 incidents left out here"));
}

} // namespace
