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
};

class Table
{
public:
    /// The column heads, ruled off.
    static void PrintHead();
    /// Prints the row.
    void Add(const Row& row);

    /// Begins with the rows of another run of the benchmark, given as its Json().
    void Continue(std::istream& json);
    std::string Json() const;

    std::size_t RowCount() const noexcept { return m_rows.size(); }
    std::size_t MissedTargets() const;

private:
    std::vector<std::string> m_rows; // each as its JSON
};

} // namespace bench
