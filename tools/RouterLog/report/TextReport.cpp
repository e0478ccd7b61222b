#include "tools/RouterLog/report/TextReport.h"

#include "tools/RouterLog/report/Findings.h"
#include "tools/RouterLog/report/Sentences.h"

#include <array>
#include <cstdio>

namespace routerlog {

namespace {

std::string Tag(TraceClass traceClass)
{
    return "[" + std::string(TextOf(traceClass).key) + "]";
}

/// `text` filled up with blanks to `width`.
std::string Padded(std::string text, std::size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

void AddHeader(const Account& account, std::string& out)
{
    for (const AccountedFile& file : account.Files()) {
        out += file.name + ": " + CountOf(static_cast<std::int64_t>(file.lines), "line", "lines") + "\n";
    }
    if (account.FirstTime()) {
        out += "From " + FormatTime(*account.FirstTime()) + " to " + FormatTime(account.LastTime()) + ".\n";
    }
}

void AddSituation(const Account& account, std::string& out)
{
    out += "\nSITUATION AT THE END\n";
    for (const Fact& fact : Situation(account)) {
        out += "  " + Padded(fact.subject, 12) +
               (fact.known ? fact.text : "not traced (needs " + std::string(TextOf(fact.traceClass).name) + ")") +
               " " + Tag(fact.traceClass) + "\n";
    }
}

std::string PlaceOf(const Account& account, const Where& where)
{
    const std::string line = std::to_string(where.line);
    return account.Files().size() > 1 ? std::to_string(where.file + 1) + ":" + line : line;
}

void AddIncidents(const Account& account, std::string& out)
{
    out += "\nWHAT HAPPENED (time, ";
    out += account.Files().size() > 1 ? "file:line" : "line";
    out += ", what, [trace class that tells it])\n";
    const std::vector<Incident> incidents = account.Incidents().InOrder();
    std::size_t index = 0;
    for (const Incident& incident : incidents) {
        if (index++ == IncidentLog::KeptAtEachEnd && account.Incidents().LeftOut() > 0) {
            out += "  ... " +
                   CountOf(static_cast<std::int64_t>(account.Incidents().LeftOut()), "incident", "incidents") +
                   " left out here ...\n";
        }
        out += "  " + (incident.where.hasTime ? FormatTime(incident.where.time) : std::string(23, '-')) + "  " +
               Padded(PlaceOf(account, incident.where), 8) + (IsFault(incident.kind) ? "! " : "  ") +
               SentenceOf(incident) + " " + Tag(incident.traceClass) + "\n";
    }
    if (incidents.empty()) {
        out += "  Nothing that the log tells of.\n";
    }
    if (!account.IsTraced(TraceClass::Usb) && account.Skipped().Entries() == 0) {
        out += "  Gaps in the instrument's numbering, connections and their ends: not traced [usb]\n";
    }
}

void AddPorts(const Account& account, std::string& out)
{
    out += "\nPORTS " + Tag(TraceClass::Packets) + "\n";
    if (!account.IsTraced(TraceClass::Packets)) {
        out += "  Requests, replies, bytes and answer times: not traced (needs Packet Parsing Traces)\n";
        return;
    }
    std::array<char, 256> row{};
    std::snprintf(row.data(), row.size(), "  %-9s %10s %14s %10s %14s %9s %9s %9s %8s %8s\n", "port", "requests",
                  "bytes", "replies", "bytes", "median", "p99", "longest", "unasked", "dropped");
    out += row.data();
    for (const auto& [address, port] : account.Ports().Traffic()) {
        const Histogram& times = port->answerTimes;
        const auto time = [&](std::int64_t ms) {
            return times.Count() > 0 ? std::to_string(ms) + " ms" : std::string("-");
        };
        std::snprintf(
            row.data(), row.size(), "  %-9s %10llu %14llu %10llu %14llu %9s %9s %9s %8llu %8llu\n",
            NameOf(address).c_str(), static_cast<unsigned long long>(port->requests),
            static_cast<unsigned long long>(port->requestBytes), static_cast<unsigned long long>(port->replies),
            static_cast<unsigned long long>(port->replyBytes), time(times.Quantile(0.5)).c_str(),
            time(times.Quantile(0.99)).c_str(), time(times.Longest()).c_str(),
            static_cast<unsigned long long>(port->unasked), static_cast<unsigned long long>(port->dropped));
        out += row.data();
    }
    out +=
        "  Answer times are as exact as the PC's clock, mostly 1 to 16 ms; a reply answers the port's oldest open "
        "request.\n";
    if (account.Ports().PacketsOfFurtherPorts() > 0) {
        out += "  " + Grouped(static_cast<std::int64_t>(account.Ports().PacketsOfFurtherPorts())) +
               " packets of further ports are not counted here.\n";
    }
}

void AddClasses(const Account& account, std::string& out)
{
    out += "\nTRACE CLASSES\n";
    for (std::size_t i = 1; i < TraceClassCount; ++i) {
        const auto each = static_cast<TraceClass>(i);
        out += "  " + Padded(Tag(each), 12) +
               Padded(std::string(TextOf(each).name) + " of " + std::string(TextOf(each).device), 58) +
               UseOf(account, each) + "\n";
    }
    out += "  The router does not check the number of the packet that follows one numbered 0: a gap there is not "
           "seen.\n";
    if (const auto untraced = UntracedClasses(account); !untraced.empty()) {
        out += "\n" + HowToTrace(untraced);
    }
}

void AddForeignLines(const Account& account, std::string& out)
{
    if (account.ForeignLineCount() == 0) {
        return;
    }
    out += "\n" + CountOf(static_cast<std::int64_t>(account.ForeignLineCount()), "LINE IS", "LINES ARE") +
           " NOT OF THE ROUTER, OR CUT\n";
    for (const ForeignLine& line : account.ForeignLines()) {
        out += "  " + Padded(PlaceOf(account, line.where), 8) + Printable(line.text) + "\n";
    }
    if (account.ForeignLineCount() > account.ForeignLines().size()) {
        out += "  ...\n";
    }
}

} // namespace

std::string Printable(std::string_view text)
{
    std::string out;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (byte >= 0x20 && byte < 0x7F) {
            out += each;
        } else {
            std::array<char, 8> hex{};
            std::snprintf(hex.data(), hex.size(), "\\x%02X", byte);
            out += hex.data();
        }
    }
    return out;
}

std::string TextReport(const Account& account)
{
    std::string out;
    AddHeader(account, out);
    AddSituation(account, out);
    AddIncidents(account, out);
    AddPorts(account, out);
    AddClasses(account, out);
    AddForeignLines(account, out);
    return out;
}

} // namespace routerlog
