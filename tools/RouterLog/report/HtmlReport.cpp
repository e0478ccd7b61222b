#include "tools/RouterLog/report/HtmlReport.h"

#include "tools/RouterLog/report/Findings.h"
#include "tools/RouterLog/report/Sentences.h"
#include "tools/RouterLog/report/Svg.h"

namespace routerlog {

namespace {

constexpr const char* Style = R"(
:root{color-scheme:light dark;--page:#fff;--text:#1c2430;--soft:#5b6675;--line:#d9dee5;--panel:#f5f7fa;
--connected:#2e9e6b;--searching:#e09f2d;--download:#4f7fe0;--off:#c3cad4;--unknown:#e4e8ee;--fault:#c9372c;
--replies:#2f6fdb;--requests:#c2660c;--mean:#2f6fdb;--longest:#b8c0cc}
@media(prefers-color-scheme:dark){:root{--page:#14181f;--text:#e4e8ee;--soft:#98a3b3;--line:#2c3440;--panel:#1c222b;
--connected:#3bbf85;--searching:#e8b04c;--download:#7aa2f7;--off:#4a5361;--unknown:#2c3440;--fault:#ff7b6e;
--replies:#7aa2f7;--requests:#f0a04b;--mean:#7aa2f7;--longest:#596577}}
body{margin:0 auto;max-width:1140px;padding:24px;background:var(--page);color:var(--text);font:15px/1.5 system-ui,"Segoe UI",sans-serif}
h1{font-size:24px;margin:0}h2{font-size:17px;margin:32px 0 8px}h3{font-size:14px;margin:16px 0 0;font-weight:600}
p{margin:4px 0}.soft,small{color:var(--soft)}
svg{width:100%;height:auto;display:block;background:var(--panel);border-radius:6px;margin:4px 0}
svg text{font-size:11px;fill:var(--soft)}.grid{stroke:var(--line);stroke-width:1}
.connected{fill:var(--connected)}.searching{fill:var(--searching)}.download{fill:var(--download)}.off{fill:var(--off)}
.unknown{fill:var(--unknown)}.mark{fill:var(--fault)}a:hover .mark,a:focus .mark{stroke:var(--text);stroke-width:2}
path.replies,path.requests,path.mean,path.longest{fill:none;stroke-width:1.6}
.replies{stroke:var(--replies)}.requests{stroke:var(--requests)}.mean{stroke:var(--mean)}.longest{stroke:var(--longest)}
.key span{margin-right:18px;white-space:nowrap}.key i{display:inline-block;width:12px;height:12px;border-radius:2px;margin-right:5px;vertical-align:-1px}
table{border-collapse:collapse;width:100%}th{text-align:left;font-weight:600;color:var(--soft)}
td,th{padding:5px 10px 5px 0;border-bottom:1px solid var(--line);vertical-align:top}
td.n,th.n{text-align:right;font-variant-numeric:tabular-nums}td.t{white-space:nowrap;font-variant-numeric:tabular-nums}
tr:target{background:var(--panel);outline:2px solid var(--download)}.fault td:nth-child(3){color:var(--fault)}
code{display:block;font:12px/1.4 ui-monospace,Consolas,monospace;color:var(--soft);overflow-wrap:anywhere}
pre{background:var(--panel);padding:12px;border-radius:6px;overflow-x:auto}
)";

std::string KeyOf(const char* variable, const char* text)
{
    return std::string("<span><i style=\"background:var(--") + variable + ")\"></i>" + text + "</span>";
}

void AddHead(const Account& account, std::string& out)
{
    out += "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
           "content=\"width=device-width\"><title>Port router log</title><style>";
    out += Style;
    out += "</style></head><body>\n<h1>Port router log</h1>\n<p class=\"soft\">";
    for (const AccountedFile& file : account.Files()) {
        out +=
            Escaped(file.name) + " (" + CountOf(static_cast<std::int64_t>(file.lines), "line", "lines") + ")<br>";
    }
    if (account.FirstTime()) {
        out += FormatTime(*account.FirstTime()) + " to " + FormatTime(account.LastTime());
    }
    out += "</p>\n";
}

void AddSituation(const Account& account, std::string& out)
{
    out += "<h2>Situation at the end</h2>\n<table>\n";
    for (const Fact& fact : Situation(account)) {
        out += "<tr><td class=\"t\">" + fact.subject + "</td><td>" +
               (fact.known ? Escaped(fact.text)
                           : "<span class=\"soft\">not traced (needs " +
                                 std::string(TextOf(fact.traceClass).name) + ")</span>") +
               "</td><td class=\"soft\">" + std::string(TextOf(fact.traceClass).key) + "</td></tr>\n";
    }
    out += "</table>\n";
}

void AddDrawings(const Account& account, const std::vector<Incident>& incidents, std::string& out)
{
    const TimeAxis axis(account.FirstTime().value_or(0), account.LastTime());
    out += "<h2>Connection</h2>\n<p class=\"key\">" + KeyOf("connected", "connected") +
           KeyOf("searching", "not connected") + KeyOf("download", "downloading firmware") +
           KeyOf("off", "router not running") + KeyOf("unknown", "not traced") +
           KeyOf("fault", "incident, leads to its line") + "</p>\n" + DrawTimeline(account, axis, incidents);
    if (!account.IsTraced(TraceClass::Usb)) {
        out += "<p class=\"soft\">The connection is not traced (needs USB Function Traces of device -1).</p>\n";
    }
    out += "<h2>Throughput</h2>\n";
    if (!account.IsTraced(TraceClass::Packets)) {
        out += "<p class=\"soft\">Throughput and answer times are not traced (they need Packet Parsing Traces of "
               "the port's "
               "device type).</p>\n";
        return;
    }
    out += "<p class=\"key\">" + KeyOf("requests", "from the clients") + KeyOf("replies", "to the clients") +
           "</p>\n" + DrawThroughput(account, axis) + "<h2>Answer times</h2>\n<p class=\"key\">" +
           KeyOf("mean", "mean") + KeyOf("longest", "longest") + "</p>\n";
    for (const auto& [address, port] : account.Ports().Traffic()) {
        if (port->answerTimes.Count() > 0) {
            out += "<h3>Port " + NameOf(address) + "</h3>\n" + DrawAnswerTimes(account, axis, address);
        }
    }
}

void AddPorts(const Account& account, std::string& out)
{
    if (!account.IsTraced(TraceClass::Packets)) {
        return;
    }
    out +=
        "<h2>Ports</h2>\n<table><tr><th>port</th><th class=\"n\">requests</th><th class=\"n\">bytes</th><th "
        "class=\"n\">replies</th><th class=\"n\">bytes</th><th class=\"n\">median</th><th class=\"n\">p99</th><th "
        "class=\"n\">longest</th><th class=\"n\">unasked</th><th class=\"n\">dropped</th></tr>\n";
    for (const auto& [address, port] : account.Ports().Traffic()) {
        out += "<tr><td>" + NameOf(address) + "</td>";
        for (const std::uint64_t number : {port->requests, port->requestBytes, port->replies, port->replyBytes}) {
            out += "<td class=\"n\">" + Grouped(static_cast<std::int64_t>(number)) + "</td>";
        }
        const Histogram& times = port->answerTimes;
        for (const std::int64_t time : {times.Quantile(0.5), times.Quantile(0.99), times.Longest()}) {
            out += "<td class=\"n\">" + (times.Count() > 0 ? Grouped(time) + " ms" : std::string("-")) + "</td>";
        }
        for (const std::uint64_t number : {port->unasked, port->dropped}) {
            out += "<td class=\"n\">" + Grouped(static_cast<std::int64_t>(number)) + "</td>";
        }
        out += "</tr>\n";
    }
    out += "</table>\n";
}

void AddIncidents(const Account& account, const std::vector<Incident>& incidents, const LineTexts& texts,
                  std::string& out)
{
    out += "<h2>What happened</h2>\n";
    if (account.Incidents().LeftOut() > 0) {
        out += "<p class=\"soft\">" + Grouped(static_cast<std::int64_t>(account.Incidents().LeftOut())) +
               " incidents in the middle are left out.</p>\n";
    }
    out += "<table><tr><th>time</th><th class=\"n\">line</th><th>what</th><th>class</th></tr>\n";
    for (std::size_t i = 0; i < incidents.size(); ++i) {
        const Incident& incident = incidents[i];
        const auto text = texts.find({incident.where.file, incident.where.line});
        out += "<tr id=\"i" + std::to_string(i) + (IsFault(incident.kind) ? "\" class=\"fault" : "") +
               "\"><td class=\"t\">" + (incident.where.hasTime ? FormatTime(incident.where.time) : "") +
               "</td><td class=\"n\">" +
               (account.Files().size() > 1 ? std::to_string(incident.where.file + 1) + ":" : std::string()) +
               std::to_string(incident.where.line) + "</td><td>" + Escaped(SentenceOf(incident)) +
               (text != texts.end() ? "<code>" + Escaped(text->second) + "</code>" : std::string()) +
               "</td><td class=\"soft\">" + std::string(TextOf(incident.traceClass).key) + "</td></tr>\n";
    }
    out += "</table>\n";
}

void AddClasses(const Account& account, std::string& out)
{
    out += "<h2>Trace classes</h2>\n<table>\n";
    for (std::size_t i = 1; i < TraceClassCount; ++i) {
        const auto each = static_cast<TraceClass>(i);
        out += "<tr><td class=\"t\">" + std::string(TextOf(each).key) + "</td><td>" +
               std::string(TextOf(each).name) + " of " + std::string(TextOf(each).device) + "</td><td>" +
               UseOf(account, each) + "</td></tr>\n";
    }
    out += "</table>\n";
    if (const auto untraced = UntracedClasses(account); !untraced.empty()) {
        out += "<pre>" + HowToTrace(untraced) + "</pre>\n";
    }
    if (account.ForeignLineCount() > 0) {
        out += "<h2>Lines that are not of the router, or cut: " +
               Grouped(static_cast<std::int64_t>(account.ForeignLineCount())) + "</h2>\n";
        for (const ForeignLine& line : account.ForeignLines()) {
            out += "<code>" + std::to_string(line.where.file + 1) + ":" + std::to_string(line.where.line) + " " +
                   Escaped(line.text) + "</code>\n";
        }
    }
}

} // namespace

std::string HtmlReport(const Account& account, const LineTexts& texts)
{
    const std::vector<Incident> incidents = account.Incidents().InOrder();
    std::string out;
    AddHead(account, out);
    AddSituation(account, out);
    AddDrawings(account, incidents, out);
    AddPorts(account, out);
    AddIncidents(account, incidents, texts, out);
    AddClasses(account, out);
    return out + "</body></html>\n";
}

} // namespace routerlog
