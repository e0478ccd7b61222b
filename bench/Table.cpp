#include "bench/Table.h"

#include "console/Format.h"

#include <cmath>

namespace bench {

namespace {

using console::Format;

std::string Number(double value)
{
    const double size = std::abs(value);
    return Format("%.*f", size >= 100 ? 0 : size >= 10 ? 1 : 2, value);
}

/// Whether the target is met, or "-" for rows that are just told. `ratio`: none without a reference.
const char* Verdict(const Row& row, std::optional<double> ratio)
{
    const double judged = ratio.value_or(row.figure);
    const bool compared = row.referenceFigure != 0.0; // else nothing was measured to compare with
    switch (row.target.relation) {
    case '<': return compared && judged <= row.target.value ? "yes" : "NO";
    case '>': return compared && judged >= row.target.value ? "yes" : "NO";
    default: return "-";
    }
}

void Print(const std::string& line)
{
    std::puts(line.c_str());
    std::fflush(stdout);
}

constexpr const char* Columns = "%-52s %-34s %-13s %-13s %-7s %-9s %s";

} // namespace

Table::Table(const std::filesystem::path& results)
{
    if (!results.empty()) {
        m_file.open(results / "rows.tsv", std::ios::binary | std::ios::app | std::ios::ate);
    }
}

void Table::Add(const Row& row)
{
    if (m_count == 0 && m_file.tellp() <= 0) {
        const std::string heads =
            Format(Columns, "measured", "reference", "figure", "reference", "ratio", "target", "met");
        Print(heads + "\n" + std::string(heads.size(), '-'));
    }
    std::optional<double> ratio;
    if (row.referenceFigure) {
        ratio = *row.referenceFigure != 0 ? row.figure / *row.referenceFigure : 0;
    }
    const std::string met = Verdict(row, ratio);
    const std::string target =
        row.target.relation == '-' ? "-" : std::string{row.target.relation} + "= " + Number(row.target.value);
    const auto withUnit = [&](double value) { return Number(value) + " " + row.unit; };
    const std::string line =
        Format(Columns, row.measured.c_str(), row.reference.c_str(), withUnit(row.figure).c_str(),
               row.referenceFigure ? withUnit(*row.referenceFigure).c_str() : "-",
               ratio ? Number(*ratio).c_str() : "-", target.c_str(), met.c_str());
    Print(row.note.empty() ? line : line + "  (" + row.note + ")");
    const auto exact = [](std::optional<double> value) { return value ? Format("%g", *value) : std::string(); };
    m_file << row.measured << '\t' << row.reference << '\t' << exact(row.figure) << '\t' << row.unit << '\t'
           << exact(row.referenceFigure) << '\t' << exact(ratio) << '\t' << target << '\t' << met << '\t'
           << row.note << std::endl;
    ++m_count;
    m_missed += met == "NO" ? 1 : 0;
}

} // namespace bench
