#include "bench/Table.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

namespace bench {

namespace {

// Of a row's JSON: what Continue looks for, which reads nothing but what Json wrote.
constexpr std::string_view RowBegin = "  {\"measured\": ";
constexpr std::string_view Met = ", \"met\": true";
constexpr std::string_view NotMet = ", \"met\": false";

std::string Number(double value)
{
    std::array<char, 40> text{};
    const double size = value < 0 ? -value : value;
    const int decimals = size >= 100 ? 0 : size >= 10 ? 1 : 2;
    std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
    return text.data();
}

std::string Padded(std::string text, std::size_t width)
{
    text.resize(text.size() < width ? width : text.size(), ' ');
    return text;
}

std::string Text(const Quantity& quantity)
{
    return quantity.unit.empty() ? Number(quantity.value) : Number(quantity.value) + " " + quantity.unit;
}

/// The ratio, or nothing where the figure itself is judged.
std::string RatioText(const Row& row)
{
    return row.referenceFigure ? Number(row.Judged()) : std::string("-");
}

std::string TargetText(const Row& row)
{
    if (row.bound == Bound::None) {
        return "-";
    }
    return (row.bound == Bound::AtMost ? "<= " : ">= ") + Number(row.target);
}

std::string MetText(const Row& row)
{
    const std::optional<bool> met = row.IsMet();
    return !met ? "-" : *met ? "yes" : "NO";
}

std::string Joined(const std::array<std::string, 7>& cells)
{
    constexpr std::array<std::size_t, 6> widths{52, 34, 13, 13, 7, 9};
    std::string line;
    for (std::size_t i = 0; i < widths.size(); ++i) {
        line += Padded(cells[i], widths[i]) + " ";
    }
    return line + cells[widths.size()];
}

std::string Quoted(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted + "\"";
}

std::string JsonOf(const Row& row)
{
    std::array<char, 40> number{};
    const auto exact = [&number](double value) {
        std::snprintf(number.data(), number.size(), "%.6g", value);
        return std::string(number.data());
    };
    std::string json = std::string(RowBegin) + Quoted(row.measured) + ", \"reference\": " + Quoted(row.reference) +
                       ", \"figure\": " + exact(row.figure.value) + ", \"unit\": " + Quoted(row.figure.unit);
    if (row.referenceFigure) {
        json += ", \"reference figure\": " + exact(row.referenceFigure->value) +
                ", \"reference unit\": " + Quoted(row.referenceFigure->unit) +
                ", \"ratio\": " + exact(row.Judged());
    }
    if (const std::optional<bool> met = row.IsMet()) {
        json += ", \"target\": " + Quoted(TargetText(row)) + std::string(*met ? Met : NotMet);
    }
    return json + ", \"note\": " + Quoted(row.note) + "}";
}

} // namespace

double Row::Judged() const
{
    if (!referenceFigure) {
        return figure.value;
    }
    return referenceFigure->value != 0 ? figure.value / referenceFigure->value : 0;
}

std::optional<bool> Row::IsMet() const
{
    if (bound != Bound::None && referenceFigure && referenceFigure->value == 0) {
        return false; // nothing was measured to compare with
    }
    switch (bound) {
    case Bound::AtMost: return Judged() <= target;
    case Bound::AtLeast: return Judged() >= target;
    case Bound::None: break;
    }
    return std::nullopt;
}

void Table::Add(Row row)
{
    if (announce != nullptr) {
        announce(Line(row));
    }
    m_rows.push_back(std::move(row));
}

std::string Table::Head()
{
    const std::array<std::string, 7> heads{"measured", "reference", "figure", "reference",
                                           "ratio",    "target",    "met"};
    const std::string line = Joined(heads);
    return line + "\n" + std::string(line.size(), '-');
}

std::string Table::Line(const Row& row)
{
    const std::string line = Joined({row.measured, row.reference, Text(row.figure),
                                     row.referenceFigure ? Text(*row.referenceFigure) : std::string("-"),
                                     RatioText(row), TargetText(row), MetText(row)});
    return row.note.empty() ? line : line + "  (" + row.note + ")";
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
    const auto ofEarlier = std::ranges::count_if(
        m_earlier, [](const std::string& row) { return row.find(std::string(NotMet)) != std::string::npos; });
    const auto ofThese = std::ranges::count_if(m_rows, [](const Row& row) { return row.IsMet() == false; });
    return static_cast<std::size_t>(ofEarlier + ofThese);
}

std::string Table::Json() const
{
    std::vector<std::string> rows = m_earlier;
    for (const Row& row : m_rows) {
        rows.push_back(JsonOf(row));
    }
    std::string json = "[\n";
    for (const std::string& row : rows) {
        json += row + (&row == &rows.back() ? "\n" : ",\n");
    }
    return json + "]\n";
}

} // namespace bench
