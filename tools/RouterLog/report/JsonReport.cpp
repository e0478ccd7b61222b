#include "tools/RouterLog/report/JsonReport.h"

#include "tools/RouterLog/report/Findings.h"
#include "tools/RouterLog/report/JsonWriter.h"
#include "tools/RouterLog/report/Sentences.h"

#include <string_view>

namespace routerlog {

namespace {

void AddNumber(JsonWriter& json, std::string_view name, std::uint64_t number)
{
    json.Name(name).Number(static_cast<std::int64_t>(number));
}

void AddTime(JsonWriter& json, std::string_view name, bool known, LogTime time)
{
    json.Name(name);
    if (known) {
        json.Text(FormatTime(time));
    } else {
        json.Null();
    }
}

void AddPort(JsonWriter& json, const PortAddress& port)
{
    json.Name("port").BeginObject();
    json.Name("type").Number(port.deviceType).Name("number").Number(port.port);
    json.EndObject();
}

void AddFiles(JsonWriter& json, const Account& account)
{
    json.Name("files").BeginArray();
    for (const AccountedFile& file : account.Files()) {
        json.BeginObject().Name("name").Text(file.name);
        AddNumber(json, "lines", file.lines);
        json.EndObject();
    }
    json.EndArray();
}

void AddClasses(JsonWriter& json, const Account& account)
{
    json.Name("classes").BeginObject();
    for (std::size_t i = 1; i < TraceClassCount; ++i) {
        const auto each = static_cast<TraceClass>(i);
        const ClassUse& use = account.Use(each);
        json.Name(TextOf(each).key).BeginObject();
        json.Name("traced").Bool(use.lines > 0 || use.declared == true);
        AddNumber(json, "lines", use.lines);
        AddTime(json, "first", use.lines > 0, use.first);
        AddTime(json, "last", use.lines > 0, use.last);
        json.EndObject();
    }
    json.EndObject();
}

void AddSituation(JsonWriter& json, const Account& account)
{
    json.Name("situation").BeginArray();
    for (const Fact& fact : Situation(account)) {
        json.BeginObject().Name("subject").Text(fact.subject);
        json.Name("needs").Text(TextOf(fact.traceClass).key);
        json.Name("text");
        if (fact.known) {
            json.Text(fact.text);
        } else {
            json.Null();
        }
        json.EndObject();
    }
    json.EndArray();
}

void AddIncident(JsonWriter& json, const Incident& incident)
{
    json.BeginObject();
    json.Name("kind").Text(KeyOf(incident.kind));
    json.Name("fault").Bool(IsFault(incident.kind));
    AddTime(json, "time", incident.where.hasTime, incident.where.time);
    AddNumber(json, "file", incident.where.file);
    AddNumber(json, "line", incident.where.line);
    json.Name("class").Text(TextOf(incident.traceClass).key);
    json.Name("text").Text(SentenceOf(incident));
    if (incident.duration >= 0) {
        json.Name("milliseconds").Number(incident.duration);
    }
    if (incident.count != 0) {
        json.Name("count").Number(incident.count);
    }
    if (incident.first != 0 &&
        (incident.kind == IncidentKind::InstrumentLost || incident.kind == IncidentKind::ClientWent))
    {
        json.Name("error").Number(incident.first);
    }
    if (incident.port) {
        AddPort(json, *incident.port);
    }
    if (!incident.name.empty()) {
        json.Name("pipe").Text(incident.name);
    }
    json.EndObject();
}

void AddIncidents(JsonWriter& json, const Account& account)
{
    json.Name("incidents").BeginArray();
    for (const Incident& incident : account.Incidents().InOrder()) {
        AddIncident(json, incident);
    }
    json.EndArray();
    AddNumber(json, "incidentsLeftOut", account.Incidents().LeftOut());
    json.Name("counts").BeginObject();
    for (std::size_t i = 0; i < IncidentKindCount; ++i) {
        const auto kind = static_cast<IncidentKind>(i);
        AddNumber(json, KeyOf(kind), account.Incidents().CountOf(kind));
    }
    json.EndObject();
}

void AddPorts(JsonWriter& json, const Account& account)
{
    json.Name("ports");
    if (!account.IsTraced(TraceClass::Packets)) {
        json.Null();
        return;
    }
    json.BeginArray();
    for (const auto& [address, port] : account.Ports().Traffic()) {
        json.BeginObject();
        AddPort(json, address);
        AddNumber(json, "requests", port->requests);
        AddNumber(json, "requestBytes", port->requestBytes);
        AddNumber(json, "replies", port->replies);
        AddNumber(json, "replyBytes", port->replyBytes);
        AddNumber(json, "unasked", port->unasked);
        AddNumber(json, "unanswered", port->unanswered);
        AddNumber(json, "dropped", port->dropped);
        json.Name("answerMilliseconds");
        if (port->answerTimes.Count() > 0) {
            json.BeginObject();
            json.Name("median").Number(port->answerTimes.Quantile(0.5));
            json.Name("p99").Number(port->answerTimes.Quantile(0.99));
            json.Name("longest").Number(port->answerTimes.Longest());
            json.EndObject();
        } else {
            json.Null();
        }
        json.EndObject();
    }
    json.EndArray();
}

void AddForeignLines(JsonWriter& json, const Account& account)
{
    json.Name("foreignLines").BeginObject();
    AddNumber(json, "count", account.ForeignLineCount());
    json.Name("samples").BeginArray();
    for (const ForeignLine& line : account.ForeignLines()) {
        json.BeginObject();
        AddNumber(json, "file", line.where.file);
        AddNumber(json, "line", line.where.line);
        json.Name("text").Text(line.text);
        json.EndObject();
    }
    json.EndArray().EndObject();
}

} // namespace

std::string JsonReport(const Account& account)
{
    JsonWriter json;
    json.BeginObject();
    json.Name("report").Text("RouterLog").Name("version").Number(JsonVersion);
    AddFiles(json, account);
    AddTime(json, "from", account.FirstTime().has_value(), account.FirstTime().value_or(0));
    AddTime(json, "to", account.FirstTime().has_value(), account.LastTime());
    AddClasses(json, account);
    AddSituation(json, account);
    AddIncidents(json, account);
    AddPorts(json, account);
    json.Name("skippedPacketLog").BeginObject();
    AddNumber(json, "entries", account.Skipped().Entries());
    AddNumber(json, "alsoTraced", account.Skipped().AlsoTraced());
    AddNumber(json, "steps255To0", account.Skipped().WrapsToZero());
    json.EndObject();
    AddForeignLines(json, account);
    json.EndObject();
    return json.Document() + "\n";
}

} // namespace routerlog
