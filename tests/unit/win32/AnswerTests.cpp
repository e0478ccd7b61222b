// What Windows answers in each state: the rows that ./windows-kit asks a real one for.
#include "tests/support/UnderWine.h"
#include "tests/windows/Answers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

namespace {

using windowscheck::AllAnswers;
using windowscheck::Answer;

constexpr std::ptrdiff_t MostDifferences = 10; // of Wine; with more it is no stand-in for Windows any more

class WindowsAnswers : public ::testing::TestWithParam<Answer>
{};

TEST_P(WindowsAnswers, AreAsDocumented)
{
    const Answer& row = GetParam();
    const bool differs = support::IsUnderWine() && row.onWine != nullptr;
    EXPECT_EQ(row.ask(), differs ? row.onWine : row.answer) << row.call << " (\"" << row.page << "\")";
}

INSTANTIATE_TEST_SUITE_P(Windows, WindowsAnswers, ::testing::ValuesIn(AllAnswers()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(WindowsAnswersOfWine, DifferInTenNamedRowsAtMost)
{
    const std::vector<Answer> rows = AllAnswers();
    const auto named = std::ranges::count_if(rows, [](const Answer& row) { return row.onWine != nullptr; });
    EXPECT_LE(named, MostDifferences);
    for (const Answer& row : rows) {
        EXPECT_EQ(row.onWine != nullptr, row.says != nullptr) << row.name;
    }
}

} // namespace
