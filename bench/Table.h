// The rows of the benchmark and how they are shown. Portable.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace bench {

/// What is asked of a row's ratio, or of its figure when there is no reference.
struct Target
{
    enum class Bound { AtMost, AtLeast, None };
    Bound bound = Bound::None; // None: the row is just told
    double value = 0;
};

inline constexpr Target Told{};

constexpr Target AtMost(double value)
{
    return {Target::Bound::AtMost, value};
}

constexpr Target AtLeast(double value)
{
    return {Target::Bound::AtLeast, value};
}

struct Row
{
    std::string measured;  // what
    std::string reference; // against what, in the same run
    double figure = 0;
    std::optional<double> referenceFigure; // none: the figure itself is judged
    std::string unit;                      // of both
    Target target;
    std::string note;

    /// The figure in units of the reference, or the figure itself.
    double Judged() const;
    /// None for rows that are just told.
    std::optional<bool> IsMet() const;
};

class Table
{
public:
    void Add(Row row);
    /// Begins with the rows of another run of the benchmark, given as its Json().
    void Continue(std::istream& json);

    std::size_t RowCount() const noexcept { return m_earlier.size() + m_rows.size(); }
    std::size_t MissedTargets() const;

    /// The column heads as one line, ruled off.
    static std::string Head();
    std::string Json() const;

    /// Called with each row, as one line, when it is added.
    void (*announce)(const std::string& line) = nullptr;

private:
    std::vector<std::string> m_earlier; // rows of another run, each as its JSON
    std::vector<Row> m_rows;
};

} // namespace bench
