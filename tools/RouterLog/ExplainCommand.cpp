// explain: what happened, as text, JSON or a page.
#include "console/CommandLine.h"
#include "console/Console.h"
#include "tools/RouterLog/Commands.h"
#include "tools/RouterLog/log/LogFiles.h"
#include "tools/RouterLog/pc/SharedFile.h"
#include "tools/RouterLog/report/HtmlReport.h"
#include "tools/RouterLog/report/JsonReport.h"
#include "tools/RouterLog/report/TextReport.h"

#include <filesystem>

namespace routerlog {

namespace {

struct ExplainOptions
{
    std::string json; // files to write; UTF-8
    std::string html;
};

/// False when the file cannot be written, which is said.
bool Write(const std::string& name, const std::string& document)
{
    if (WriteWholeFile(std::filesystem::path(console::Wide(name)), document)) {
        return true;
    }
    Fail("cannot write " + name + " (Windows error " + std::to_string(::GetLastError()) + ")",
         ExitCode::Unwritable);
    return false;
}

LineTexts QuotedLines(const Account& account, const std::vector<std::filesystem::path>& files)
{
    std::vector<Where> wanted;
    for (const Incident& incident : account.Incidents().InOrder()) {
        wanted.push_back(incident.where);
    }
    return TextsOf(wanted, files, SharedFile::Open);
}

} // namespace

int Explain(const Arguments& arguments)
{
    ExplainOptions options;
    std::vector<std::string> names;
    const auto wrong = commandline::Parse(
        arguments,
        {{"--json", true, commandline::Store(options.json)}, {"--html", true, commandline::Store(options.html)}},
        &names);
    if (wrong || names.empty()) {
        return Fail(wrong.value_or("explain needs a log or a folder"), ExitCode::Usage);
    }
    const LogFiles logs = InOrderOfWriting(PathsOf(names), SharedFile::Open);
    if (!logs.fault.empty()) {
        return Fail(logs.fault, ExitCode::Unreadable);
    }
    Account account;
    for (const std::filesystem::path& path : logs.files) {
        const auto file = SharedFile::Open(path);
        if (!file) {
            return Fail("cannot read " + NameOf(path), ExitCode::Unreadable);
        }
        account.TakeFile(NameOf(path), *file);
    }
    account.Finish();
    console::Say(TextReport(account));
    bool written = options.json.empty() || Write(options.json, JsonReport(account));
    if (!options.html.empty()) {
        written = Write(options.html, HtmlReport(account, QuotedLines(account, logs.files))) && written;
    }
    return static_cast<int>(written ? ExitCode::Good : ExitCode::Unwritable);
}

} // namespace routerlog
