// Drawings of the report, as inline SVG. Portable.
#pragma once

#include "tools/RouterLog/analysis/Account.h"

#include <string>
#include <vector>

namespace routerlog {

/// The time axis that all drawings of one report share. All lengths in SVG units, which are pixels at full width.
class TimeAxis
{
public:
    static constexpr double Left = 64;
    static constexpr double Right = 1080;

    TimeAxis(LogTime from, LogTime to) : m_from(from), m_to(to > from ? to : from + 1) {}

    /// Times outside are moved to the nearer end.
    double At(LogTime time) const;
    /// Lines and times below `height`; the text is below the lines.
    std::string Ticks(double height) const;
    LogTime From() const noexcept { return m_from; }
    LogTime To() const noexcept { return m_to; }

private:
    LogTime m_from, m_to;
};

/// States of router and connection as bars, incidents as marks that lead to their rows "#i<number>".
std::string DrawTimeline(const Account& account, const TimeAxis& axis, const std::vector<Incident>& incidents);

/// Bytes a second to and from the clients of all ports.
std::string DrawThroughput(const Account& account, const TimeAxis& axis);

/// Mean and longest answer times of one port.
std::string DrawAnswerTimes(const Account& account, const TimeAxis& axis, const PortAddress& port);

/// `&`, `<`, `>`, `"` for HTML; other characters that are no printable ASCII as "\xHH".
std::string Escaped(std::string_view text);

} // namespace routerlog
