#include "tests/support/OwnFolder.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"
#include "win32/ModulePath.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace support {

namespace {

// Tells the copy that it is one, by the name of the test that it was made for.
constexpr const char* Mark = "MORVANE_TEST_IN_OWN_FOLDER";

/// A variable that the programs started meanwhile have (null: do not have).
class InheritedVariable
{
public:
    InheritedVariable(const char* name, const char* value) : m_name(name)
    {
        if (const char* const before = std::getenv(name)) {
            m_before = before;
        }
        ::SetEnvironmentVariableA(name, value);
    }
    ~InheritedVariable() { ::SetEnvironmentVariableA(m_name, m_before ? m_before->c_str() : nullptr); }
    InheritedVariable(const InheritedVariable&) = delete;
    InheritedVariable& operator=(const InheritedVariable&) = delete;

private:
    const char* m_name;
    std::optional<std::string> m_before;
};

std::string RunningTest()
{
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    return std::string(test.test_suite_name()) + "." + test.name();
}

} // namespace

bool DoneInOwnFolder()
{
    const std::string test = RunningTest();
    if (const char* const mark = std::getenv(Mark); mark != nullptr && mark == test) {
        return false;
    }
    const TempFolder folder;
    const std::filesystem::path original(win32::ModulePath().value_or(std::wstring()));
    const std::filesystem::path copy = folder.Path() / original.filename();
    std::filesystem::copy_file(original, copy);
    const InheritedVariable mark(Mark, test.c_str());
    const InheritedVariable undivided("GTEST_TOTAL_SHARDS", nullptr); // else the test may fall to another shard
    const ChildProcess child(copy, L"--gtest_filter=" + std::wstring(test.begin(), test.end()));
    EXPECT_EQ(child.WaitForExit(3 * DefaultTimeout), 0u) << child.Output();
    EXPECT_NE(child.Output().find("[  PASSED  ] 1 test."), std::string::npos) << child.Output();
    return true;
}

} // namespace support
