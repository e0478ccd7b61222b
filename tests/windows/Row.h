// What the code assumes of Windows, one row for each assumption that a program can decide.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace windowscheck {

struct Found
{
    enum class Outcome { Holds, Differs, Skipped };

    Outcome outcome;
    std::string words; // what was found, or why it was skipped; empty when it holds
};

inline Found Holds()
{
    return {Found::Outcome::Holds, {}};
}
inline Found Differs(std::string words)
{
    return {Found::Outcome::Differs, std::move(words)};
}
inline Found Skipped(std::string words)
{
    return {Found::Outcome::Skipped, std::move(words)};
}
/// Holds, or differs with these words.
inline Found HoldsIf(bool holds, std::string words)
{
    return holds ? Holds() : Differs(std::move(words));
}

struct Row
{
    std::string assumption; // a sentence
    const char* page;       // the title of Microsoft's page about it
    std::function<Found()> look;
};

std::vector<Row> PipeRows();
std::vector<Row> ComRows();
std::vector<Row> MachineRows();
std::vector<Row> WindowRows();

bool IsElevated();

/// The parts of the rows that need a second process: what `role` of WindowsCheck's command line is to do with
/// `argument`. The exit code, or -1 when there is no such role.
int PlayComRole(const std::string& role, const std::string& argument);

/// Ports, the transport and a simulated instrument in this process, with clients for so long. Returns what went
/// wrong, and what was done.
Found RunShortSoak(int seconds, std::string& figures);

} // namespace windowscheck
