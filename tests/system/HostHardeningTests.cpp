// What protects the built programs: read from their files, and seen at work.
#include "tests/support/ChildProcess.h"
#include "win32/Windows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

namespace {

/// A program's file as its header describes it.
class Image
{
public:
    explicit Image(const std::wstring& program)
    {
        std::ifstream file(support::ProgramFolder() / program, std::ios::binary);
        m_bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    bool IsValid() const
    {
        return m_bytes.size() > 4096 && At<IMAGE_DOS_HEADER>(0)->e_magic == IMAGE_DOS_SIGNATURE &&
               Headers()->Signature == IMAGE_NT_SIGNATURE &&
               Headers()->OptionalHeader.Magic == IMAGE_NT_OPTIONAL_HDR64_MAGIC;
    }
    WORD Characteristics() const { return Headers()->OptionalHeader.DllCharacteristics; }
    /// Without relocations a program cannot be moved, whatever its characteristics say.
    bool HasRelocations() const
    {
        return (Headers()->FileHeader.Characteristics & IMAGE_FILE_RELOCS_STRIPPED) == 0 &&
               Headers()->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_BASERELOC].Size > 8;
    }
    /// Names of the imported libraries, in lower case.
    std::set<std::string> Imports() const
    {
        std::set<std::string> names;
        const DWORD table = Headers()->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
        for (auto entry = At<IMAGE_IMPORT_DESCRIPTOR>(OffsetOf(table)); entry->Name != 0; ++entry) {
            std::string name = At<char>(OffsetOf(entry->Name));
            std::transform(name.begin(), name.end(), name.begin(),
                           [](char c) { return static_cast<char>(std::tolower(c)); });
            names.insert(std::move(name));
        }
        return names;
    }

private:
    template <class Part>
    const Part* At(std::size_t offset) const
    {
        return reinterpret_cast<const Part*>(m_bytes.data() + offset);
    }
    const IMAGE_NT_HEADERS64* Headers() const
    {
        return At<IMAGE_NT_HEADERS64>(static_cast<std::size_t>(At<IMAGE_DOS_HEADER>(0)->e_lfanew));
    }
    std::size_t OffsetOf(DWORD address) const
    {
        const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(Headers());
        for (WORD left = Headers()->FileHeader.NumberOfSections; left != 0; --left, ++section) {
            if (address >= section->VirtualAddress && address < section->VirtualAddress + section->SizeOfRawData) {
                return address - section->VirtualAddress + section->PointerToRawData;
            }
        }
        return 0;
    }

    std::vector<char> m_bytes;
};

class HostHardening : public testing::TestWithParam<const wchar_t*>
{
protected:
    void SetUp() override { ASSERT_TRUE(m_image.IsValid()); }

    const Image m_image{GetParam()};
};

TEST_P(HostHardening, TheProgramIsMovedInA64BitAddressSpace)
{
    EXPECT_TRUE(m_image.Characteristics() & IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE);
    EXPECT_TRUE(m_image.Characteristics() & IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA);
    EXPECT_TRUE(m_image.HasRelocations());
}

TEST_P(HostHardening, TheProgramsDataCannotBeExecuted)
{
    EXPECT_TRUE(m_image.Characteristics() & IMAGE_DLLCHARACTERISTICS_NX_COMPAT);
}

// Windows takes these from its own folder, whatever lies beside a program that imports them (the values of the
// registry key "KnownDLLs" on Windows 10 and 11; "Dynamic-link library search order").
TEST_P(HostHardening, OnlyLibrariesThatCannotBePlantedAreImported)
{
    const std::set<std::string> known{"advapi32.dll", "gdi32.dll",    "kernel32.dll", "msvcrt.dll", "ole32.dll",
                                      "oleaut32.dll", "setupapi.dll", "shell32.dll",  "user32.dll"};
    const std::set<std::string> imports = m_image.Imports();
    EXPECT_TRUE(imports.contains("kernel32.dll"));
    for (const std::string& name : imports) {
        EXPECT_TRUE(known.contains(name)) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(Programs, HostHardening,
                         testing::Values(L"MorvanePortRouter.exe", L"RouterProbe.exe",
                                         L"InstrumentSimulator.exe"));

// The protector of older run-time libraries ends a program by an illegal instruction, that of newer ones by
// Windows' own call for it.
TEST(HostStackProtector, AnOverrunArrayEndsTheProgram)
{
    constexpr DWORD IllegalInstruction = 0xC000001D;
    constexpr DWORD BufferOverrun = 0xC0000409;
    const support::ChildProcess overrun(support::ProgramFolder() / L"StackOverrun.exe", L"48");
    const std::optional<DWORD> code = overrun.WaitForExit();
    ASSERT_TRUE(code);
    EXPECT_TRUE(*code == IllegalInstruction || *code == BufferOverrun) << std::hex << *code;
    EXPECT_EQ(overrun.Output().find("survived"), std::string::npos) << overrun.Output();
}

TEST(HostStackProtector, AnArrayThatIsJustFilledEndsNothing)
{
    const support::ChildProcess filled(support::ProgramFolder() / L"StackOverrun.exe", L"16");
    EXPECT_EQ(filled.WaitForExit(), 0U);
    EXPECT_EQ(filled.Output(), "survived x\r\n");
}

} // namespace
