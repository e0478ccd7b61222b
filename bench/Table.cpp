#include "bench/Table.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <istream>
#include <string_view>

namespace bench {

namespace {

using Bound = Target::Bound;

// Of a row's JSON: what Continue looks for, which reads nothing but what Json wrote.
constexpr std::string_view RowBegin = "  {\"measured\": ";
constexpr std::string_view NotMet = ", \"met\": false";

std::string Format(const char* format, int precision, double value)
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), format, precision, value);
    return text.data();
}

std::string Number(double value)
{
    const double size = std::abs(value);
    return Format("%.*f", size >= 100 ? 0 : size >= 10 ? 1 : 2, value);
}

std::string TargetText(const Target& target)
{
    return target.bound == Bound::None ? "-"
                                       : (target.bound == Bound::AtMost ? "<= " : ">= ") + Number(target.value);
}

std::string Joined(const std::array<std::string, 7>& cells)
{
    constexpr std::array<std::size_t, 6> widths{52, 34, 13, 13, 7, 9};
    std::string line;
    for (std::size_t i = 0; i < widths.size(); ++i) {
        line += cells[i] + std::string(widths[i] - std::min(widths[i], cells[i].size()) + 1, ' ');
    }
    return line + cells[widths.size()];
}

std::string LineOf(const Row& row)
{
    const std::optional<bool> met = row.IsMet();
    const std::string reference = row.referenceFigure ? Number(*row.referenceFigure) + " " + row.unit : "-";
    const std::string ratio = row.referenceFigure ? Number(row.Judged()) : "-";
    const std::string line = Joined({row.measured, row.reference, Number(row.figure) + " " + row.unit, reference,
                                     ratio, TargetText(row.target), !met ? "-" : (*met ? "yes" : "NO")});
    return row.note.empty() ? line : line + "  (" + row.note + ")";
}

std::string Quoted(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
    }
    return quoted + "\"";
}

std::string JsonOf(const Row& row)
{
    const auto exact = [](double value) { return Format("%.*g", 6, value); };
    std::string json = std::string(RowBegin) + Quoted(row.measured) + ", \"reference\": " + Quoted(row.reference) +
                       ", \"figure\": " + exact(row.figure) + ", \"unit\": " + Quoted(row.unit);
    if (row.referenceFigure) {
        json += ", \"reference figure\": " + exact(*row.referenceFigure) +
                ", \"reference unit\": " + Quoted(row.unit) + ", \"ratio\": " + exact(row.Judged());
    }
    if (const std::optional<bool> met = row.IsMet()) {
        json +=
            ", \"target\": " + Quoted(TargetText(row.target)) + (*met ? ", \"met\": true" : std::string(NotMet));
    }
    return json + ", \"note\": " + Quoted(row.note) + "}";
}

} // namespace

double Row::Judged() const
{
    const double against = referenceFigure.value_or(1);
    return against != 0 ? figure / against : 0;
}

std::optional<bool> Row::IsMet() const
{
    if (target.bound == Bound::None) {
        return std::nullopt;
    }
    const bool compared = referenceFigure != 0.0; // else nothing was measured to compare with
    return compared && (target.bound == Bound::AtMost ? Judged() <= target.value : Judged() >= target.value);
}

void Table::Add(Row row)
{
    if (announce != nullptr) {
        announce(LineOf(row));
    }
    m_rows.push_back(std::move(row));
}

std::string Table::Head()
{
    const std::string line = Joined({"measured", "reference", "figure", "reference", "ratio", "target", "met"});
    return line + "\n" + std::string(line.size(), '-');
}

void Table::Continue(std::istream& json)
{
    for (std::string line; std::getline(json, line);) {
        if (line.starts_with(RowBegin)) {
            m_earlier.push_back(line.substr(0, line.rfind('}') + 1));
        }
    }
}

std::size_t Table::MissedTargets() const
{
    const auto missed = [](const std::string& row) { return row.find(NotMet) != std::string::npos; };
    return static_cast<std::size_t>(std::ranges::count_if(m_earlier, missed) +
                                    std::ranges::count_if(m_rows, missed, &JsonOf));
}

std::string Table::Json() const
{
    std::vector<std::string> rows = m_earlier;
    std::ranges::transform(m_rows, std::back_inserter(rows), &JsonOf);
    std::string json;
    for (const std::string& row : rows) {
        json += (json.empty() ? "[\n" : ",\n") + row;
    }
    return json + "\n]\n";
}

} // namespace bench
