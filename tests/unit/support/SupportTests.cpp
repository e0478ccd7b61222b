// The test support itself: what other tests rely on must hold.
#include "tests/support/RecordingTrace.h"
#include "tests/support/TestSupport.h"
#include "trace/Trace.h"
#include "win32/Event.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>
#include <fstream>

namespace {

using support::RecordingTrace;
using support::RegistryRoot;
using support::TempFolder;
using support::UniqueName;
using win32::RegistryKey;

constexpr const wchar_t* Key = L"Software\\Morvane Biosystems\\SupportTests";

TEST(RegistryRoot, KeysOfLocalMachineGoToThePrivateRootOnly)
{
    {
        const RegistryRoot root;
        const RegistryKey key = RegistryKey::Create(HKEY_LOCAL_MACHINE, Key, KEY_ALL_ACCESS);
        ASSERT_TRUE(key);
        key.WriteDword(L"Value", 7);
        EXPECT_EQ(RegistryKey::Open(HKEY_LOCAL_MACHINE, Key, KEY_READ).ReadDword(L"Value"), 7u);
        EXPECT_EQ(RegistryKey::Open(root.Get(), Key, KEY_READ).ReadDword(L"Value"), 7u);
    }
    EXPECT_FALSE(RegistryKey::Open(HKEY_LOCAL_MACHINE, Key, KEY_READ));
}

TEST(RegistryRoot, EachRootStartsEmpty)
{
    for (int round = 0; round < 2; ++round) {
        const RegistryRoot root;
        EXPECT_FALSE(RegistryKey::Open(HKEY_LOCAL_MACHINE, Key, KEY_READ));
        EXPECT_TRUE(RegistryKey::Create(HKEY_LOCAL_MACHINE, Key, KEY_ALL_ACCESS));
    }
}

TEST(RegistryRoot, NothingStaysBehindInTheUsersHive)
{
    {
        const RegistryRoot root;
        EXPECT_TRUE(RegistryKey::Create(HKEY_LOCAL_MACHINE, Key, KEY_ALL_ACCESS));
    }
    const RegistryKey parent = RegistryKey::Open(HKEY_CURRENT_USER, L"Software\\MorvaneTests", KEY_READ);
    ASSERT_TRUE(parent);
    EXPECT_FALSE(parent.SubkeyName(0));
}

TEST(TempFolder, IsEmptyAtFirstAndGoneWithItsContentsAtTheEnd)
{
    std::filesystem::path path;
    {
        const TempFolder folder;
        path = folder.Path();
        EXPECT_TRUE(std::filesystem::is_empty(path));
        std::filesystem::create_directories(path / "Log");
        std::ofstream(path / "Log" / "file.txt") << "text";
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(UniqueName, NeverRepeats)
{
    EXPECT_NE(UniqueName(L"Pipe"), UniqueName(L"Pipe"));
    EXPECT_NE(UniqueName("Pipe"), UniqueName("Pipe"));
    EXPECT_EQ(support::PipePath(L"Name"), L"\\\\.\\pipe\\Name");
}

TEST(WaitUntil, TellsAStateThatComesFromOneThatDoesNot)
{
    int looks = 0;
    EXPECT_TRUE(support::WaitUntil([&] { return ++looks == 3; }));
    EXPECT_EQ(looks, 3);
    EXPECT_FALSE(support::WaitUntil([] { return false; }, std::chrono::milliseconds(5)));
}

TEST(WaitFor, TellsASignalledEventFromOneThatIsNot)
{
    const win32::Event event(win32::Event::Kind::AutoReset, true);
    EXPECT_TRUE(support::WaitFor(event.Get()));
    EXPECT_FALSE(support::WaitFor(event.Get(), std::chrono::milliseconds(0)));
}

TEST(RecordingTrace, KeepsTextDeviceAndClassOfEachLine)
{
    RecordingTrace::Clear();
    Trace(17, trace::DevicePipe, "port %d of %s", 3, "pipe");
    const auto lines = RecordingTrace::Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].device, 17);
    EXPECT_EQ(lines[0].classMask, trace::DevicePipe);
    EXPECT_EQ(lines[0].text, "port 3 of pipe");
    RecordingTrace::Clear();
    EXPECT_TRUE(RecordingTrace::Texts().empty());
}

TEST(RecordingTrace, WaitsForALineOfAnotherThread)
{
    RecordingTrace::Clear();
    win32::Thread thread;
    ASSERT_TRUE(thread.Start([] {
        Trace(trace::RouterChannel, trace::General, "first");
        Trace(trace::RouterChannel, trace::General, "the other line");
    }));
    EXPECT_TRUE(RecordingTrace::WaitForLine("other"));
    EXPECT_EQ(RecordingTrace::Count("r"), 2u);
    EXPECT_FALSE(RecordingTrace::WaitForLine("never", std::chrono::milliseconds(5)));
    EXPECT_FALSE(RecordingTrace::WaitForLine("other", std::chrono::milliseconds(5), 2));
}

TEST(RecordingTrace, DumpsOnlyWhenWanted)
{
    RecordingTrace::Clear();
    const std::uint8_t bytes[] = {0x01, 0xFE};
    std::string out = "old";
    EXPECT_FALSE(DumpPacket(1, trace::ReadWrite, bytes, 2, true, out));
    EXPECT_EQ(out, "") << "as the router's own sink leaves it";
    RecordingTrace::WantDumps(true);
    EXPECT_TRUE(DumpPacket(1, trace::ReadWrite, bytes, 2, true, out));
    EXPECT_EQ(out, "hex 01 FE");
    EXPECT_TRUE(DumpPacket(1, trace::ReadWrite, bytes, 2, false, out));
    EXPECT_EQ(out, "text 01 FE");
    RecordingTrace::Clear();
    EXPECT_FALSE(DumpPacket(1, trace::ReadWrite, bytes, 2, true, out));
}

} // namespace
