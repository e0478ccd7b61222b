#include "tools/RouterLog/report/LiveView.h"

#include "tools/RouterLog/report/Findings.h"
#include "tools/RouterLog/report/Sentences.h"

#include <algorithm>

namespace routerlog {

std::string LiveView::Show(std::int64_t milliseconds)
{
    std::string out;
    if (m_account.FirstTime()) {
        out += "at " + FormatTime(m_account.LastTime()) + ", ";
    }
    AddRates(out, std::max<std::int64_t>(milliseconds, 1));
    for (const Fact& fact : Situation(m_account)) {
        out += "  " + fact.subject + ": " + (fact.known ? fact.text : "not traced") + "\n";
    }
    AddPorts(out);
    AddIncidents(out);
    return out;
}

LiveView::Totals LiveView::Count() const
{
    Totals totals;
    totals.lines = m_account.Lines();
    for (const auto& [address, port] : m_account.Ports().Traffic()) {
        totals.requests += port->requests;
        totals.requestBytes += port->requestBytes;
        totals.replies += port->replies;
        totals.replyBytes += port->replyBytes;
    }
    return totals;
}

void LiveView::AddRates(std::string& out, std::int64_t milliseconds)
{
    const Totals now = Count();
    const auto rate = [&](std::uint64_t Totals::* of) {
        return Grouped(static_cast<std::int64_t>((now.*of - m_before.*of) * 1000) / milliseconds);
    };
    out += Grouped(static_cast<std::int64_t>(now.lines)) + " lines, " + rate(&Totals::lines) + " lines/s";
    if (m_account.IsTraced(TraceClass::Packets)) {
        out += ", " + rate(&Totals::requests) + " requests/s (" + rate(&Totals::requestBytes) + " bytes/s), " +
               rate(&Totals::replies) + " replies/s (" + rate(&Totals::replyBytes) + " bytes/s)";
    }
    out += "\n";
    m_before = now;
}

void LiveView::AddPorts(std::string& out) const
{
    for (const auto& [address, port] : m_account.Ports().Traffic()) {
        out += "  Port " + NameOf(address) + ": " +
               CountOf(static_cast<std::int64_t>(port->requests), "request", "requests") + ", " +
               CountOf(static_cast<std::int64_t>(port->replies), "reply", "replies");
        if (port->answerTimes.Count() > 0) {
            out += ", answered in " + std::to_string(port->answerTimes.Quantile(0.5)) + " ms (median), " +
                   std::to_string(port->answerTimes.Quantile(0.99)) + " ms (p99)";
        }
        out += port->open.empty() ? "\n" : ", " + std::to_string(port->open.size()) + " open\n";
    }
}

void LiveView::AddIncidents(std::string& out) const
{
    const std::vector<Incident> incidents = m_account.Incidents().Last(IncidentsShown);
    for (const Incident& incident : incidents) {
        out += (IsFault(incident.kind) ? "! " : "  ") +
               (incident.where.hasTime ? FormatTimeOfDay(incident.where.time) : std::string("-")) + " " +
               SentenceOf(incident) + "\n";
    }
}

} // namespace routerlog
