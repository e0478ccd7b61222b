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

// Of a row's JSON: what is looked for in rows that were read, which is nothing but what Json wrote.
constexpr std::string_view RowBegin = "  {\"measured\": ";
constexpr std::string_view NotMet = ", \"met\": false";

template <class... Values>
std::string Format(const char* format, Values... values)
{
    std::array<char, 300> text{};
    std::snprintf(text.data(), text.size(), format, values...);
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

/// The figure in units of the reference, or the figure itself.
double Judged(const Row& row)
{
    const double against = row.referenceFigure.value_or(1);
    return against != 0 ? row.figure / against : 0;
}

/// None for rows that are just told.
std::optional<bool> IsMet(const Row& row)
{
    if (row.target.bound == Bound::None) {
        return std::nullopt;
    }
    const bool compared = row.referenceFigure != 0.0; // else nothing was measured to compare with
    const double judged = Judged(row);
    return compared &&
           (row.target.bound == Bound::AtMost ? judged <= row.target.value : judged >= row.target.value);
}

constexpr const char* Columns = "%-52s %-34s %-13s %-13s %-7s %-9s %s";

std::string LineOf(const Row& row)
{
    const std::optional<bool> met = IsMet(row);
    const std::string figure = Number(row.figure) + " " + row.unit;
    const std::string reference = row.referenceFigure ? Number(*row.referenceFigure) + " " + row.unit : "-";
    const std::string ratio = row.referenceFigure ? Number(Judged(row)) : "-";
    const std::string line =
        Format(Columns, row.measured.c_str(), row.reference.c_str(), figure.c_str(), reference.c_str(),
               ratio.c_str(), TargetText(row.target).c_str(), !met ? "-" : (*met ? "yes" : "NO"));
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
    const auto exact = [](double value) { return Format("%g", value); };
    std::string json = std::string(RowBegin) + Quoted(row.measured) + ", \"reference\": " + Quoted(row.reference) +
                       ", \"figure\": " + exact(row.figure) + ", \"unit\": " + Quoted(row.unit);
    if (row.referenceFigure) {
        json += ", \"reference figure\": " + exact(*row.referenceFigure) +
                ", \"reference unit\": " + Quoted(row.unit) + ", \"ratio\": " + exact(Judged(row));
    }
    if (const std::optional<bool> met = IsMet(row)) {
        json +=
            ", \"target\": " + Quoted(TargetText(row.target)) + (*met ? ", \"met\": true" : std::string(NotMet));
    }
    return json + ", \"note\": " + Quoted(row.note) + "}";
}

void Print(const std::string& line)
{
    std::puts(line.c_str());
    std::fflush(stdout);
}

} // namespace

void Table::PrintHead()
{
    const std::string line =
        Format(Columns, "measured", "reference", "figure", "reference", "ratio", "target", "met");
    Print(line + "\n" + std::string(line.size(), '-'));
}

void Table::Add(const Row& row)
{
    Print(LineOf(row));
    m_rows.push_back(JsonOf(row));
}

void Table::Continue(std::istream& json)
{
    for (std::string line; std::getline(json, line);) {
        if (line.starts_with(RowBegin)) {
            m_rows.push_back(line.substr(0, line.rfind('}') + 1));
        }
    }
}

std::string Table::Json() const
{
    std::string json;
    for (const std::string& row : m_rows) {
        json += (json.empty() ? "[\n" : ",\n") + row;
    }
    return json + "\n]\n";
}

std::size_t Table::MissedTargets() const
{
    return static_cast<std::size_t>(
        std::ranges::count_if(m_rows, [](const std::string& row) { return row.find(NotMet) != row.npos; }));
}

} // namespace bench
