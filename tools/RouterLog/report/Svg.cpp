#include "tools/RouterLog/report/Svg.h"

#include "tools/RouterLog/report/Sentences.h"
#include "tools/RouterLog/report/TextReport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace routerlog {

namespace {

constexpr double Width = 1100;
constexpr std::int64_t MsPerDay = 86'400'000;

std::string Number(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", value);
    return text.data();
}

std::string OpenSvg(double height, const std::string& title)
{
    return "<svg viewBox=\"0 0 " + Number(Width) + " " + Number(height) + "\" role=\"img\"><title>" + title +
           "</title>\n";
}

std::string Text(double x, double y, const std::string& anchor, const std::string& text)
{
    return "<text x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" text-anchor=\"" + anchor + "\">" + text +
           "</text>\n";
}

/// The least of 1, 2, 5, 10, 20, ... that is not below `least`.
double RoundAbove(double least)
{
    double step = std::pow(10.0, std::floor(std::log10(std::max(least, 1e-9))));
    for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
        if (step * factor >= least * 0.999) {
            return step * factor;
        }
    }
    return step * 10;
}

struct StateText
{
    const char* cssClass;
    const char* name;
};

StateText TextOf(RouterState state)
{
    switch (state) {
    case RouterState::NotRunning: return {"off", "router not running"};
    case RouterState::Searching: return {"searching", "not connected"};
    case RouterState::Downloading: return {"download", "downloading firmware"};
    case RouterState::Connected: return {"connected", "connected"};
    default: return {"unknown", "not traced"};
    }
}

/// A chart's frame: axis values from 0 to `most` over `height` from `top`.
struct Plot
{
    double top, height, most;
    double Y(double value) const { return top + height - std::clamp(value / most, 0.0, 1.0) * height; }
};

std::string ValueAxis(const Plot& plot, const std::string& unit)
{
    std::string out;
    for (int i = 0; i <= 2; ++i) {
        const double value = plot.most * i / 2;
        const double y = plot.Y(value);
        std::array<char, 64> label{};
        std::snprintf(label.data(), label.size(), "%.4g %s", value, unit.c_str());
        out += "<line class=\"grid\" x1=\"" + Number(TimeAxis::Left) + "\" x2=\"" + Number(TimeAxis::Right) +
               "\" y1=\"" + Number(y) + "\" y2=\"" + Number(y) + "\"/>\n" +
               Text(TimeAxis::Left - 6, y + 4, "end", label.data());
    }
    return out;
}

/// Steps of equal width; a point that is not known ends the line.
template <class ValueOf>
std::string Steps(const TrafficTimeline& course, std::size_t cells, const TimeAxis& axis, const Plot& plot,
                  const char* cssClass, ValueOf valueOf)
{
    std::string path;
    bool drawing = false;
    for (std::size_t i = 0; i < cells; ++i) {
        const double value = valueOf(i);
        if (value < 0) {
            drawing = false;
            continue;
        }
        const LogTime from = course.Origin() + static_cast<std::int64_t>(i) * course.CellTime();
        const std::string y = Number(plot.Y(value));
        path += (drawing ? "V" + y : "M" + Number(axis.At(from)) + " " + y) + "H" +
                Number(axis.At(from + course.CellTime()));
        drawing = true;
    }
    return "<path class=\"" + std::string(cssClass) + "\" d=\"" + path + "\"/>\n";
}

} // namespace

double TimeAxis::At(LogTime time) const
{
    const double share =
        static_cast<double>(std::clamp(time, m_from, m_to) - m_from) / static_cast<double>(m_to - m_from);
    return Left + share * (Right - Left);
}

std::string TimeAxis::Ticks(double height) const
{
    constexpr auto steps = std::to_array<std::int64_t>(
        {1,       2,         5,         10,        20,        50,         100,       200,     500,
         1000,    2000,      5000,      10'000,    20'000,    30'000,     60'000,    120'000, 300'000,
         600'000, 1'200'000, 1'800'000, 3'600'000, 7'200'000, 21'600'000, 43'200'000});
    const std::int64_t least = (m_to - m_from) / 9;
    const auto found = std::ranges::lower_bound(steps, least);
    const std::int64_t step = found != steps.end() ? *found : (least / MsPerDay + 1) * MsPerDay;
    std::string out;
    for (LogTime time = (m_from + step - 1) / step * step; time <= m_to; time += step) {
        const std::string stamp = FormatTime(time);
        const std::string label = step >= MsPerDay ? stamp.substr(0, 10) : stamp.substr(11, step >= 1000 ? 8 : 12);
        out += "<path class=\"grid\" d=\"M" + Number(At(time)) + " 0V" + Number(height) + "\"/>\n" +
               Text(At(time), height + 14, "middle", label);
    }
    return out;
}

std::string DrawTimeline(const Account& account, const TimeAxis& axis, const std::vector<Incident>& incidents)
{
    constexpr double BarTop = 40, BarHeight = 26, Bottom = 74;
    std::string out = OpenSvg(Bottom + 20, "State of the connection and incidents over time") + axis.Ticks(Bottom);
    for (const StateTimeline::Span& span : account.States().Spans(account.LastTime())) {
        const StateText state = TextOf(span.state);
        const double left = axis.At(span.from);
        out += "<rect class=\"" + std::string(state.cssClass) + "\" x=\"" + Number(left) + "\" y=\"" +
               Number(BarTop) + "\" width=\"" + Number(std::max(axis.At(span.to) - left, 0.5)) + "\" height=\"" +
               Number(BarHeight) + "\"><title>" + state.name + ", " + FormatDuration(span.to - span.from) +
               "</title></rect>\n";
    }
    for (std::size_t i = 0; i < incidents.size(); ++i) {
        if (!IsFault(incidents[i].kind) || !incidents[i].where.hasTime) {
            continue;
        }
        const double x = axis.At(incidents[i].where.time);
        out += "<a href=\"#i" + std::to_string(i) + "\"><path class=\"mark\" d=\"M" + Number(x) + " " +
               Number(BarTop - 2) + "l-6 -14h12z\"><title>" + Escaped(SentenceOf(incidents[i])) +
               "</title></path></a>\n";
    }
    return out + "</svg>\n";
}

std::string DrawThroughput(const Account& account, const TimeAxis& axis)
{
    const TrafficTimeline& course = account.Ports().Course();
    std::vector<double> to, from;
    for (const auto& [address, row] : course.Rows()) {
        to.resize(std::max(to.size(), row.size()));
        from.resize(to.size());
        for (std::size_t i = 0; i < row.size(); ++i) {
            to[i] += static_cast<double>(row[i].replyBytes) * 1000 / static_cast<double>(course.CellTime());
            from[i] += static_cast<double>(row[i].requestBytes) * 1000 / static_cast<double>(course.CellTime());
        }
    }
    double most = 1;
    for (std::size_t i = 0; i < to.size(); ++i) {
        most = std::max({most, to[i], from[i]});
    }
    const double unit = most >= 2e6 ? 1e6 : most >= 2e3 ? 1e3 : 1;
    const Plot plot{10, 120, RoundAbove(most / unit)};
    std::string out = OpenSvg(150, "Bytes a second from and to the clients") + axis.Ticks(130) +
                      ValueAxis(plot, unit > 1e5 ? "MB/s"
                                      : unit > 1 ? "KB/s"
                                                 : "B/s");
    out += Steps(course, to.size(), axis, plot, "replies", [&](std::size_t i) { return to[i] / unit; });
    out += Steps(course, from.size(), axis, plot, "requests", [&](std::size_t i) { return from[i] / unit; });
    return out + "</svg>\n";
}

std::string DrawAnswerTimes(const Account& account, const TimeAxis& axis, const PortAddress& port)
{
    const TrafficTimeline& course = account.Ports().Course();
    const auto found = course.Rows().find(port);
    if (found == course.Rows().end()) {
        return {};
    }
    const TrafficTimeline::Row& row = found->second;
    double most = 1;
    for (const TrafficTimeline::Cell& cell : row) {
        most = std::max(most, static_cast<double>(cell.longestAnswer));
    }
    const Plot plot{10, 80, RoundAbove(most)};
    std::string out =
        OpenSvg(110, "Answer times of port " + NameOf(port)) + axis.Ticks(90) + ValueAxis(plot, "ms");
    out += Steps(course, row.size(), axis, plot, "longest", [&](std::size_t i) {
        return row[i].answers > 0 ? static_cast<double>(row[i].longestAnswer) : -1.0;
    });
    out += Steps(course, row.size(), axis, plot, "mean", [&](std::size_t i) {
        return row[i].answers > 0 ? static_cast<double>(row[i].answerTime) / static_cast<double>(row[i].answers)
                                  : -1.0;
    });
    return out + "</svg>\n";
}

std::string Escaped(std::string_view text)
{
    std::string out;
    for (const char each : Printable(text)) {
        switch (each) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += each;
        }
    }
    return out;
}

} // namespace routerlog
