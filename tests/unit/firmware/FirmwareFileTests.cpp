// The firmware file beside the program.
#include "tests/unit/firmware/AllocationLimit.h"
#include "tests/unit/firmware/FirmwareFixture.h"
#include "win32/Handle.h"
#include "win32/ModulePath.h"

#include <gtest/gtest.h>

#include <string>

using namespace firmwaretest;
using Outcome = FirmwareReading::Outcome;

namespace {

class FirmwareFile : public FirmwareTest
{
protected:
    FirmwareReading Read(decltype(&::ReadFile) readFile = &::ReadFile) const
    {
        return ReadFirmware(FirmwareFileName(ProgramPath(), Product), readFile);
    }

    void ExpectNoFile() const
    {
        const FirmwareReading reading = Read();
        EXPECT_EQ(reading.outcome, Outcome::NoFile);
        EXPECT_EQ(reading.image, nullptr);
    }

    void ExpectLoaded(const std::string& contents) const
    {
        const FirmwareReading reading = Read();
        ASSERT_EQ(reading.outcome, Outcome::Loaded);
        EXPECT_EQ(reading.count, contents.size());
        ASSERT_NE(reading.image, nullptr);
        ASSERT_EQ(reading.image->size, contents.size());
        EXPECT_TRUE(std::string(reading.image->bytes.get(), reading.image->bytes.get() + reading.image->size) ==
                    contents);
    }

    win32::FileHandle Hold(DWORD access, DWORD share) const
    {
        win32::FileHandle held(::CreateFileW(FilePath().c_str(), access, share, nullptr, OPEN_EXISTING,
                                             FILE_ATTRIBUTE_NORMAL, nullptr));
        EXPECT_TRUE(held);
        return held;
    }
};

TEST_F(FirmwareFile, OfProduct4660IsFirmware4660OutInTheFirmwareFolder)
{
    EXPECT_EQ(FirmwareFileName(L"C:\\Program Files\\Router\\Router.exe", 4660),
              L"C:\\Program Files\\Router\\Firmware\\Firmware_4660.Out");
}

TEST_F(FirmwareFile, TheProductIdIsDecimal)
{
    EXPECT_EQ(FirmwareFileName(L"C:\\R.exe", 0), L"C:\\Firmware\\Firmware_0.Out");
    EXPECT_EQ(FirmwareFileName(L"C:\\R.exe", 0xFFFF), L"C:\\Firmware\\Firmware_65535.Out");
}

TEST_F(FirmwareFile, AProgramPathWithoutABackslashGivesNoName)
{
    EXPECT_TRUE(FirmwareFileName(L"Router.exe", 4660).empty());
    EXPECT_TRUE(FirmwareFileName(std::wstring(), 4660).empty());
    EXPECT_EQ(ReadFirmware(std::wstring(), &::ReadFile).outcome, Outcome::NoFile);
}

TEST_F(FirmwareFile, IsLookedForBesideTheRunningProgram)
{
    EXPECT_EQ(FirmwareSurroundings::OfThisProcess().programPath, win32::ModulePath());
}

TEST_F(FirmwareFile, Missing)
{
    ExpectNoFile();
    WriteFile(10, Product + 1);
    ExpectNoFile();
}

TEST_F(FirmwareFile, EmptyIsAnImageOfNoBytes)
{
    WriteFile(0);
    ExpectLoaded("");
}

TEST_F(FirmwareFile, Of7981Bytes)
{
    ExpectLoaded(WriteFile(7981));
}

TEST_F(FirmwareFile, Of16Megabytes)
{
    ExpectLoaded(WriteFile(16U << 20));
}

TEST_F(FirmwareFile, HeldOpenByAReaderIsReadTooByAWriterOrAloneIsNot)
{
    const std::string contents = WriteFile(100);
    {
        const win32::FileHandle reader = Hold(GENERIC_READ, FILE_SHARE_READ);
        ExpectLoaded(contents);
    }
    {
        const win32::FileHandle writer = Hold(GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
        ExpectNoFile();
    }
    {
        const win32::FileHandle alone = Hold(GENERIC_READ, 0);
        ExpectNoFile();
    }
    ExpectLoaded(contents);
}

TEST_F(FirmwareFile, IsClosedAfterwards)
{
    WriteFile(100);
    ExpectLoaded(Contents(100));
    EXPECT_TRUE(Hold(GENERIC_READ | GENERIC_WRITE | DELETE, 0));
}

TEST_F(FirmwareFile, AFolderOfThatNameExistsButCannotBeOpened)
{
    std::filesystem::create_directories(FilePath());
    ExpectNoFile();
}

TEST_F(FirmwareFile, AReadThatFailsWithEveryByteDeliveredDiscardsTheImage)
{
    WriteFile(100);
    const FirmwareReading reading = Read([](HANDLE file, void* to, DWORD size, DWORD* count, OVERLAPPED*) -> BOOL {
        EXPECT_TRUE(::ReadFile(file, to, size, count, nullptr));
        return FALSE;
    });
    EXPECT_EQ(reading.outcome, Outcome::Discarded);
    EXPECT_EQ(reading.image, nullptr);
    EXPECT_EQ(reading.count, 100U);
}

TEST_F(FirmwareFile, AReadThatFailsEarlierKeepsThePartThatWasRead)
{
    const std::string contents = WriteFile(100);
    const FirmwareReading reading = Read([](HANDLE file, void* to, DWORD, DWORD* count, OVERLAPPED*) -> BOOL {
        EXPECT_TRUE(::ReadFile(file, to, 40, count, nullptr));
        return FALSE;
    });
    EXPECT_EQ(reading.outcome, Outcome::Loaded);
    EXPECT_EQ(reading.count, 40U);
    ASSERT_NE(reading.image, nullptr);
    EXPECT_EQ(std::string(reading.image->bytes.get(), reading.image->bytes.get() + reading.image->size),
              contents.substr(0, 40));
}

TEST_F(FirmwareFile, AReadThatFailsAtOnceKeepsAnImageOfNoBytes)
{
    WriteFile(100);
    const FirmwareReading reading = Read([](HANDLE, void*, DWORD, DWORD*, OVERLAPPED*) -> BOOL { return FALSE; });
    EXPECT_EQ(reading.outcome, Outcome::Loaded);
    EXPECT_EQ(reading.count, 0U);
}

TEST_F(FirmwareFile, AReadThatFailsOnAnEmptyFileDiscardsTheImage)
{
    WriteFile(0);
    EXPECT_EQ(Read([](HANDLE, void*, DWORD, DWORD*, OVERLAPPED*) -> BOOL { return FALSE; }).outcome,
              Outcome::Discarded);
}

TEST_F(FirmwareFile, AReadThatWorksButEndsEarlierGivesWhatItRead)
{
    WriteFile(100);
    const FirmwareReading reading = Read([](HANDLE file, void* to, DWORD, DWORD* count, OVERLAPPED*) -> BOOL {
        return ::ReadFile(file, to, 60, count, nullptr);
    });
    EXPECT_EQ(reading.outcome, Outcome::Loaded);
    ASSERT_NE(reading.image, nullptr);
    EXPECT_EQ(reading.image->size, 60U);
}

TEST_F(FirmwareFile, ThatMemoryDoesNotHoldCountsAsUnopenable)
{
    WriteFile(1U << 20);
    const AllocationLimit limit(1000);
    ExpectNoFile();
}

TEST_F(FirmwareFile, Of4GigabytesAndMoreCountsAsUnopenable)
{
    WriteFile(0);
    {
        const win32::FileHandle file = Hold(GENERIC_WRITE, 0);
        LARGE_INTEGER size{};
        size.QuadPart = 0x1'0000'0000;
        ASSERT_TRUE(::SetFilePointerEx(file.Get(), size, nullptr, FILE_BEGIN));
        ASSERT_TRUE(::SetEndOfFile(file.Get()));
    }
    ExpectNoFile();
}

} // namespace
