// The DLLs of both architectures as files, and as programs use them that were compiled with the first header.
#include "tests/client/AttachedPort.h"
#include "tests/client/FirstHeader.h"
#include "tests/support/Programs32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr std::array<const char*, 18> Names = {"morvane_cancel",        "morvane_close",
                                               "morvane_error_name",    "morvane_error_text",
                                               "morvane_flush",         "morvane_next_event",
                                               "morvane_open",          "morvane_open_ex",
                                               "morvane_receive",       "morvane_receive_unsolicited",
                                               "morvane_reopen",        "morvane_request",
                                               "morvane_request_match", "morvane_resync",
                                               "morvane_send",          "morvane_version",
                                               "morvane_wait_handle",   "morvane_wait_ready"};

/// A DLL's file as its headers describe it, read without loading it: half of them cannot be loaded here.
class DllFile
{
public:
    explicit DllFile(const std::filesystem::path& path)
    {
        std::ifstream file(path, std::ios::binary);
        m_bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    bool IsFor(WORD machine) const { return m_bytes.size() > 4096 && Headers()->FileHeader.Machine == machine; }

    std::set<std::string> Exports() const
    {
        const auto* const table = At<IMAGE_EXPORT_DIRECTORY>(Directory(IMAGE_DIRECTORY_ENTRY_EXPORT));
        const auto* const names = At<DWORD>(table->AddressOfNames);
        std::set<std::string> found;
        for (DWORD i = 0; i < table->NumberOfNames; ++i) {
            found.emplace(At<char>(names[i]));
        }
        return found;
    }
    /// Names of the imported libraries, in lower case.
    std::set<std::string> Imports() const
    {
        std::set<std::string> found;
        for (auto* entry = At<IMAGE_IMPORT_DESCRIPTOR>(Directory(IMAGE_DIRECTORY_ENTRY_IMPORT)); entry->Name != 0;
             ++entry)
        {
            std::string name = At<char>(entry->Name);
            std::ranges::transform(name, name.begin(),
                                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            found.insert(std::move(name));
        }
        return found;
    }

private:
    const IMAGE_NT_HEADERS32* Headers() const
    {
        const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(m_bytes.data());
        return reinterpret_cast<const IMAGE_NT_HEADERS32*>(m_bytes.data() + dos->e_lfanew);
    }
    /// Up to the optional header both architectures have the same layout.
    DWORD Directory(int entry) const
    {
        const auto* const wide = reinterpret_cast<const IMAGE_NT_HEADERS64*>(Headers());
        return IsFor(IMAGE_FILE_MACHINE_AMD64) ? wide->OptionalHeader.DataDirectory[entry].VirtualAddress
                                               : Headers()->OptionalHeader.DataDirectory[entry].VirtualAddress;
    }
    template <class Part>
    const Part* At(DWORD address) const
    {
        const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(Headers());
        while (address < section->VirtualAddress || address >= section->VirtualAddress + section->SizeOfRawData) {
            ++section;
        }
        return reinterpret_cast<const Part*>(m_bytes.data() + section->PointerToRawData + address -
                                             section->VirtualAddress);
    }

    std::vector<char> m_bytes;
};

struct Architecture
{
    const char* name;
    const wchar_t* path;
    WORD machine;
};

struct LibraryBinary : testing::TestWithParam<Architecture>
{
    void SetUp() override
    {
        if (!std::filesystem::exists(support::ProgramFolder() / GetParam().path)) {
            ASSERT_EQ(GetParam().machine, IMAGE_FILE_MACHINE_I386);
            GTEST_SKIP() << "this tree has no 32-bit library";
        }
        ASSERT_TRUE(file.IsFor(GetParam().machine));
    }

    const DllFile file{support::ProgramFolder() / GetParam().path};
};

// Undecorated on x86 as well: every language finds them by the same names.
TEST_P(LibraryBinary, ExportsItsFunctionsAndNothingElse)
{
    EXPECT_EQ(file.Exports(), std::set<std::string>(Names.begin(), Names.end()));
}

TEST_P(LibraryBinary, NeedsNothingButWindows)
{
    const std::set<std::string> windows{"advapi32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "oleaut32.dll"};
    const std::set<std::string> imports = file.Imports();
    EXPECT_TRUE(imports.contains("kernel32.dll"));
    EXPECT_TRUE(std::ranges::includes(windows, imports)) << testing::PrintToString(imports);
}

INSTANTIATE_TEST_SUITE_P(Of, LibraryBinary,
                         testing::Values(Architecture{"x64", L"MorvaneClient.dll", IMAGE_FILE_MACHINE_AMD64},
                                         Architecture{"x86", L"x86\\MorvaneClient.dll", IMAGE_FILE_MACHINE_I386}),
                         [](const auto& test) { return test.param.name; });

TEST(LibraryFirstHeader, IsServed)
{
    const FakePort server(Echo);
    EXPECT_EQ(RunFirstProgram(Narrow(server.Name()).c_str()), 0) << "the step that failed";
}

TEST(LibraryFirstHeader, IsServedFor32Bits)
{
    if (!support::Runs32BitPrograms()) {
        ASSERT_FALSE(support::Needs32BitPrograms()) << "there is no 32-bit Wine";
        GTEST_SKIP() << "there is no 32-bit Wine";
    }
    const FakePort server(Echo);
    const support::ChildProcess program(support::Program32(L"Client32.exe"), L"library " + server.Name());
    EXPECT_EQ(program.WaitForExit(std::chrono::seconds(60)), 0u) << program.Output();
}

} // namespace
