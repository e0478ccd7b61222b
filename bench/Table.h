// The rows of the benchmark and how they are shown. Portable.
#pragma once

#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace bench {

/// A figure with its unit.
struct Quantity
{
    double value = 0;
    std::string unit;
};

/// At most, at least, or just told.
enum class Bound { AtMost, AtLeast, None };

struct Row
{
    std::string measured;  // what
    std::string reference; // against what, in the same run
    Quantity figure;
    std::optional<Quantity> referenceFigure; // none: the figure itself is judged
    Bound bound = Bound::None;
    double target = 0; // of the ratio, or of the figure when there is no reference
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

    /// The column heads, and each row as one line. Add's `announce` prints them as they come.
    static std::string Head();
    static std::string Line(const Row& row);
    std::string Json() const;

    /// Called with each row as it is added.
    void (*announce)(const std::string& line) = nullptr;

private:
    std::vector<std::string> m_earlier; // rows of another run, each as its JSON
    std::vector<Row> m_rows;
};

} // namespace bench
