// The page and the file for programs, which need nothing but themselves.
#include "tests/routerlog/portable/Json.h"
#include "tests/routerlog/portable/Logs.h"
#include "tools/RouterLog/report/HtmlReport.h"
#include "tools/RouterLog/report/JsonReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

using namespace routerlog;
using routerlogtest::LogText;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

namespace {

/// A log with everything that is drawn, and names and lines that try to break out of a page.
class Reports : public testing::Test
{
protected:
    Reports()
    {
        log.At(0, "******** Begin Logging ********")
            .At(5, "CCyUSBDriver::USBCommandProcessThread() started")
            .At(10, "Connection to USB opened, BULK IN on Pipe 2 and OUT on Pipe 1")
            .At(20, "(\\\\.\\pipe\\<script>\"&'\xFF) Pipe connected");
        for (int i = 0; i < 100; ++i) {
            log.At(100 + i * 50, "DEV->PCR[03,01][010] A ").At(120 + i * 50, "DEV<-PCR[03,01][020] B ");
        }
        log.At(5200, "CCyUSBDriver::DispatchToDevice() Packet has packet number 4, expect 3")
            .At(6000, "Reply-receive failed(31), reconnecting...")
            .At(6001, "CCyUSBDriver::NotifyState(Not Connected)")
            .Bare("<script>alert(1)</script>");
        routerlogtest::Take(account, log.Text());
        account.Finish();
    }
    std::string Page() const { return HtmlReport(account, {}); }

    /// What stands between `begin` and the next quotation mark, each time.
    static std::multiset<std::string> All(const std::string& text, const std::string& begin)
    {
        std::multiset<std::string> found;
        for (std::size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at)) {
            at += begin.size();
            found.insert(text.substr(at, text.find('"', at) - at));
        }
        return found;
    }

    LogText log;
    Account account;
};

TEST_F(Reports, AreAPageThatLoadsNothingAndRunsNothing)
{
    const std::string page = Page();
    EXPECT_THAT(page, Not(AnyOf(HasSubstr("<script"), HasSubstr("src="), HasSubstr("http"), HasSubstr("url("),
                                HasSubstr("@import"), HasSubstr("<link"))));
    EXPECT_THAT(page, HasSubstr("&lt;script&gt;"));
    EXPECT_THAT(page, HasSubstr("prefers-color-scheme:dark"));
}

TEST_F(Reports, AreAPageWhoseMarksLeadToLines)
{
    const std::string page = Page();
    const std::multiset<std::string> targets = All(page, " id=\"");
    const std::multiset<std::string> marks = All(page, "href=\"#");
    EXPECT_EQ(marks.size(), 3U); // the gap, the loss, the client that was cut off
    for (const std::string& mark : marks) {
        EXPECT_EQ(targets.count(mark), 1U) << mark;
        EXPECT_THAT(page, HasSubstr("<tr id=\"" + mark + "\" class=\"fault\">"));
    }
}

TEST_F(Reports, AreAPageThatDrawsConnectionThroughputAndAnswerTimes)
{
    const std::string page = Page();
    EXPECT_EQ(All(page, "<svg viewBox=\"").size(), 3U);
    for (const char* part : {"class=\"connected\"", "class=\"searching\"", "class=\"requests\"",
                             "class=\"replies\"", "class=\"mean\"", "class=\"longest\""})
    {
        EXPECT_THAT(page, HasSubstr(part));
    }
}

TEST_F(Reports, ForProgramsAreJsonWithAVersion)
{
    const std::string json = JsonReport(account);
    EXPECT_TRUE(routerlogtest::JsonText(json).IsValid()) << json;
    EXPECT_THAT(json, HasSubstr("\"version\": 1,"));
    EXPECT_FALSE(routerlogtest::JsonText(json.substr(0, json.size() - 2)).IsValid());
}

} // namespace
