// The built RouterLog over logs on disk.
#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

using testing::HasSubstr;

namespace {

class ExplainProgram : public testing::Test
{
protected:
    void Write(const wchar_t* name, const std::string& text) const
    {
        std::ofstream(folder.Path() / name, std::ios::binary) << text;
    }
    std::string Read(const wchar_t* name) const
    {
        std::ifstream in(folder.Path() / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    std::optional<DWORD> Run(const std::wstring& arguments)
    {
        const support::ChildProcess program(support::ProgramFolder() / L"RouterLog.exe", arguments);
        const auto code = program.WaitForExit();
        output = program.Output();
        return code;
    }
    std::wstring Quoted(const wchar_t* name) const { return L"\"" + (folder.Path() / name).wstring() + L"\""; }
    std::wstring QuotedFolder() const { return L"\"" + folder.Path().wstring() + L"\""; }

    support::TempFolder folder;
    std::string output;
};

TEST_F(ExplainProgram, TakesAFoldersLogsInTheOrderOfWriting)
{
    Write(L"MorvanePortRouter.log",
          "********** Continued **********\r\n"
          "[11-21-26 21:14:06:0042] Connection to USB opened, BULK IN on Pipe 2 and OUT on Pipe 1\r\n");
    Write(L"MorvanePortRouter.log.BAK",
          "[11-21-26 21:14:05:0000] ******** Begin Logging ********\r\n"
          "[11-21-26 21:14:05:0042] CCyUSBDriver::USBCommandProcessThread() started\r\n"
          "********* To Be Continued *****\r\n");
    Write(L"USBPortRouterSkippedPacket.log", "[11/21/26 20:00:00]  Previous Packet#   7  Current Packet# 9  \n");
    Write(L"other.txt", "no log\r\n");
    EXPECT_EQ(
        Run(L"explain " + QuotedFolder() + L" --json " + Quoted(L"out.json") + L" --html " + Quoted(L"out.html")),
        0U);
    const std::size_t start = output.find("The router started, to be used over USB.");
    const std::size_t connected = output.find("The instrument was connected, 1.000 s after");
    const std::size_t gap = output.find("Gap of 1 packet");
    EXPECT_LT(start, connected) << output;
    EXPECT_LT(connected, gap) << output;
    EXPECT_NE(gap, std::string::npos) << output;
    EXPECT_THAT(Read(L"out.json"), HasSubstr("\"version\": 1"));
    EXPECT_THAT(Read(L"out.html"), HasSubstr("<code>[11-21-26 21:14:06:0042] Connection to USB opened"));
}

TEST_F(ExplainProgram, RefusesWhatItCannotRead)
{
    EXPECT_EQ(Run(L"explain " + Quoted(L"missing.log")), 3U);
    EXPECT_THAT(output, HasSubstr("cannot read"));
    EXPECT_EQ(Run(L"explain " + QuotedFolder()), 3U);
    EXPECT_EQ(Run(L"explain"), 2U);
    EXPECT_EQ(Run(L"swim"), 2U);
}

TEST_F(ExplainProgram, ReadsALogThatTheRouterHasOpen)
{
    Write(L"a.log", "[11-21-26 21:14:05:0042] CCyUSBDriver::USBCommandProcessThread() started\r\n");
    const win32::FileHandle router(::CreateFileW((folder.Path() / L"a.log").c_str(), GENERIC_READ | GENERIC_WRITE,
                                                 FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                                 nullptr));
    ASSERT_TRUE(router);
    EXPECT_EQ(Run(L"explain " + Quoted(L"a.log")), 0U);
    EXPECT_THAT(output, HasSubstr("[usb]"));
}

TEST_F(ExplainProgram, WritesACaptureWithExport)
{
    Write(L"a.log", "[11-21-26 21:14:05:0042] PCR->USB[3] a b c \r\n");
    EXPECT_EQ(Run(L"export " + Quoted(L"a.log") + L" -o " + Quoted(L"a.pcapng")), 0U);
    EXPECT_THAT(output, HasSubstr("1 packet written"));
    EXPECT_THAT(Read(L"a.pcapng"), testing::StartsWith("\x0A\x0D\x0D\x0A"));
    EXPECT_EQ(Run(L"export " + Quoted(L"a.log") + L" -o " + Quoted(L"missing\\a.pcapng")), 4U);
}

} // namespace
