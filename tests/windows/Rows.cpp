#include "tests/support/UnderWine.h"
#include "tests/windows/Answers.h"
#include "tests/windows/Kit.h"

#include <cstdio>
#include <exception>

namespace windowscheck {

namespace {

bool Report(const Row& row)
{
    Found found = Skipped("");
    try {
        found = row.look();
    } catch (const std::exception& fault) {
        found = Differs(std::string("the check failed: ") + fault.what());
    }
    const bool differs = found.outcome == Found::Outcome::Differs;
    const char* const word = differs ? "DIFFERS" : found.outcome == Found::Outcome::Holds ? "holds  " : "skipped";
    std::printf("%s  %s (\"%s\")\n", word, row.assumption.c_str(), row.page);
    if (!found.words.empty()) {
        std::printf("         %s: %s\n", differs ? "found" : "because", found.words.c_str());
    }
    std::fflush(stdout);
    return !differs;
}

Found Ask(const Answer& answer)
{
    const std::string found = answer.ask();
    if (support::IsUnderWine() && answer.onWine != nullptr && found == answer.onWine) {
        return Skipped(std::string("Wine answers ") + found + "; of the page: " + answer.says);
    }
    return HoldsIf(found == answer.answer, found);
}

std::vector<Row> AnswerRows()
{
    std::vector<Row> rows;
    for (const Answer& answer : AllAnswers()) {
        rows.push_back({std::string(answer.call) + ": " + answer.answer + ".", answer.page,
                        [answer] { return Ask(answer); }});
    }
    return rows;
}

} // namespace

int CheckAll()
{
    int differing = 0;
    for (const auto& rows : {AnswerRows(), PipeRows(), ComRows(), MachineRows(), WindowRows()}) {
        for (const Row& row : rows) {
            differing += Report(row) ? 0 : 1;
        }
    }
    std::printf("%d differ\n", differing);
    return differing == 0 ? 0 : 1;
}

} // namespace windowscheck
