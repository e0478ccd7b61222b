// The rows of the benchmark and how they are shown. Portable.
#pragma once

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace bench {

/// What is asked of a row's ratio, or of its figure when there is no reference.
struct Target
{
    char relation = '-'; // '<' or '>', or equal; '-': the row is just told
    double value = 0;
};

inline constexpr Target Told{};
inline constexpr auto AtMost = [](double value) { return Target{'<', value}; };
inline constexpr auto AtLeast = [](double value) { return Target{'>', value}; };

struct Row
{
    std::string measured;  // what
    std::string reference; // against what, in the same run
    double figure = 0;
    std::optional<double> referenceFigure; // none: the figure itself is judged
    std::string unit;                      // of both
    Target target;
    std::string note;
};

/// Prints the rows.
class Table
{
public:
    /// `results`: a folder where each row is added to rows.tsv, its values divided by tabs; empty for none. The
    /// rows of several runs so form one table.
    explicit Table(const std::filesystem::path& results = {});
    void Add(const Row& row);

    int RowCount() const noexcept { return m_count; }
    int MissedTargets() const noexcept { return m_missed; }

private:
    std::ofstream m_file;
    int m_count = 0;
    int m_missed = 0;
};

} // namespace bench
